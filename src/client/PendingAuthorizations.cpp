#include "src/client/PendingAuthorizations.h"

#include "src/platform/World.h"

PendingAuthorizations& PendingAuthorizations::shared() {
  return qvr::World::current().state<PendingAuthorizations>();
}

void PendingAuthorizations::store(const std::string& state,
                                  QVROAuth2AuthorizationCompletionHandler handler) {
  {
    qvr::MutexLock lock(authorizationCompletionHandlersLock);
    authorizationCompletionHandlers[state].swap(handler);
  }
  // A handler that was replaced is released here, outside the lock.
}

QVROAuth2AuthorizationCompletionHandler PendingAuthorizations::take(const std::string& state) {
  qvr::MutexLock lock(authorizationCompletionHandlersLock);
  const auto found = authorizationCompletionHandlers.find(state);
  if (found == authorizationCompletionHandlers.end()) return nullptr;
  QVROAuth2AuthorizationCompletionHandler handler = std::move(found->second);
  authorizationCompletionHandlers.erase(found);
  return handler;
}
