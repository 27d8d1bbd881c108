// The shared manager: requests queue their handlers by user name, read the keychain, and share one
// refresh when the record is due.

#include "QVROAuth2Client/QVROAuth2TokenManager.h"

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "src/manager/TokenArchive.h"
#include "src/manager/TokenManagerFields.h"
#include "src/platform/Log.h"
#include "src/platform/World.h"

namespace {

constexpr std::string_view kHasAccessTokenHandler =
    "-[QVROAuth2TokenManager hasAccessTokenForProvider:username:completionHandler:]_block_invoke";

}  // namespace

// Owns the one instance, which no reference can destroy.
struct QVROAuth2TokenManagerInstance {
  QVROAuth2TokenManager* const manager = make();
  ~QVROAuth2TokenManagerInstance() { delete manager; }

 private:
  static QVROAuth2TokenManager* make() {
    (void)QVROAuth2Keychain::defaultOAuth2Keychain();  // a host without a keychain learns it here
    auto* const made = new QVROAuth2TokenManager;
    made->makeImmortal();
    return made;
  }
};

// What a request carries from step to step.
struct QVROAuth2TokenManager::Request {
  QVROAuth2TokenManager* manager;
  std::string identifier;
  qvr::Text provider;
  qvr::Text username;

  void removeTask() const;
  void fanOut(const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr& error) const;
  void conclude(const qvr::Ref<QVROAuth2Token>& token, const qvr::ErrorPtr& error) const;
  void storeAndConclude(const qvr::Ref<QVROAuth2Token>& token) const;
  void finish(const qvr::Ref<QVROAuth2Token>& token, bool store, const qvr::ErrorPtr& error) const;
  qvr::Ref<QVROAuth2Token> tokenBeingRefreshed(const qvr::Data& archive) const;
  qvr::Ref<qvr::URLSessionDataTask> registerRefresh(const qvr::Ref<QVROAuth2Token>& token,
                                                    qvr::Data&& archive) const;
  void readToken(qvr::Data&& archive) const;
  void keychainResult(std::optional<qvr::Data>&& archive, const qvr::ErrorPtr& error) const;
};

void QVROAuth2TokenManager::Request::removeTask() const {
  Fields::Refresh removed;  // released after the lock
  qvr::MutexLock lock(manager->fields_->tasksByIdentifierLock);
  const auto found = manager->fields_->tasksByIdentifier.find(identifier);
  if (found == manager->fields_->tasksByIdentifier.end()) return;
  removed = std::move(found->second);
  manager->fields_->tasksByIdentifier.erase(found);
}

// Answers every handler queued so far, oldest first; the entry is gone before the first one runs.
void QVROAuth2TokenManager::Request::fanOut(const qvr::Ref<QVROAuth2Token>& token,
                                            const qvr::ErrorPtr& error) const {
  Fields::CompletionHandlers handlers;
  {
    qvr::MutexLock lock(manager->fields_->completionHandlersByIdentifierLock);
    const auto found = manager->fields_->completionHandlersByIdentifier.find(identifier);
    if (found == manager->fields_->completionHandlersByIdentifier.end()) return;
    handlers = std::move(found->second);
    manager->fields_->completionHandlersByIdentifier.erase(found);
  }
  for (const QVROAuth2TokenCompletionHandler& handler : handlers)
    handler(token, error);
}

void QVROAuth2TokenManager::Request::conclude(const qvr::Ref<QVROAuth2Token>& token,
                                              const qvr::ErrorPtr& error) const {
  removeTask();
  fanOut(token, error);
}

// A token that could not be stored is not delivered: the next process would not have it.
void QVROAuth2TokenManager::Request::storeAndConclude(const qvr::Ref<QVROAuth2Token>& token) const {
  manager->setTokenToKeychain(
      token, provider, username, [request = *this, token](const qvr::ErrorPtr& storeError) {
        storeError ? request.conclude(nullptr, storeError) : request.conclude(token, nullptr);
      });
}

// `store` says that the token has just come from the token endpoint.
void QVROAuth2TokenManager::Request::finish(const qvr::Ref<QVROAuth2Token>& token, bool store,
                                            const qvr::ErrorPtr& error) const {
  if (!token) return conclude(nullptr, error);
  if (!store) return conclude(token, nullptr);
  storeAndConclude(token);
}

// The record whose refresh is running, when it is the one that `archive` holds; else null. So all
// who wait for a refresh have the record decoded once.
qvr::Ref<QVROAuth2Token> QVROAuth2TokenManager::Request::tokenBeingRefreshed(
    const qvr::Data& archive) const {
  qvr::MutexLock lock(manager->fields_->tasksByIdentifierLock);
  const auto found = manager->fields_->tasksByIdentifier.find(identifier);
  if (found == manager->fields_->tasksByIdentifier.end()) return nullptr;
  return found->second.archive == archive ? found->second.token : nullptr;
}

// The task to resume; null when a refresh is running already, which will answer this request too.
qvr::Ref<qvr::URLSessionDataTask> QVROAuth2TokenManager::Request::registerRefresh(
    const qvr::Ref<QVROAuth2Token>& token, qvr::Data&& archive) const {
  qvr::MutexLock lock(manager->fields_->tasksByIdentifierLock);
  auto& tasks = manager->fields_->tasksByIdentifier;
  if (tasks.contains(identifier)) return nullptr;
  qvr::Ref<qvr::URLSessionDataTask> task = manager->taskForRefreshingAccessToken(
      token, provider, username,
      [request = *this](const qvr::Ref<QVROAuth2Token>& newToken, const qvr::ErrorPtr& error) {
        request.finish(newToken, true, error);
      });
  tasks.emplace(identifier, Fields::Refresh{task, std::move(archive), token});
  return task;
}

void QVROAuth2TokenManager::Request::readToken(qvr::Data&& archive) const {
  qvr::ErrorPtr error;
  qvr::Ref<QVROAuth2Token> token = tokenBeingRefreshed(archive);
  if (!token) token = unarchivedToken(archive, &error);
  if (!token || !token->shouldRefreshToken()) return finish(token, false, error);
  const qvr::Ref<qvr::URLSessionDataTask> task = registerRefresh(token, std::move(archive));
  if (task) task->resume();
}

void QVROAuth2TokenManager::Request::keychainResult(std::optional<qvr::Data>&& archive,
                                                    const qvr::ErrorPtr& error) const {
  archive ? readToken(*std::move(archive)) : finish(nullptr, false, error);
}

QVROAuth2TokenManager::QVROAuth2TokenManager() : fields_(std::make_unique<Fields>()) {}
QVROAuth2TokenManager::~QVROAuth2TokenManager() = default;

QVROAuth2TokenManager* QVROAuth2TokenManager::sharedOAuth2TokenManager() {
  return qvr::World::current().state<QVROAuth2TokenManagerInstance>().manager;
}

QVROAuth2TokenManager* QVROAuth2TokenManager::allocWithZone(void*) {
  return nullptr;
}

QVROAuth2TokenManager* QVROAuth2TokenManager::copyWithZone(void*) noexcept {
  return this;
}
QVROAuth2TokenManager* QVROAuth2TokenManager::retain() noexcept {
  return this;
}
void QVROAuth2TokenManager::release() noexcept {}
QVROAuth2TokenManager* QVROAuth2TokenManager::autorelease() noexcept {
  return this;
}

qvr::TextView QVROAuth2TokenManager::identifierForProvider(qvr::TextView, qvr::TextView username) {
  return username;
}

void QVROAuth2TokenManager::hasAccessTokenForProvider(
    qvr::TextView provider, qvr::TextView username,
    QVROAuth2HasTokenCompletionHandler completionHandler) {
  getTokenFromKeychainForProvider(
      provider, username,
      [handler = std::move(completionHandler)](const qvr::Ref<QVROAuth2Token>& token,
                                               const qvr::ErrorPtr& error) {
        if (error && !error->is(qvr::NSOSStatusErrorDomain, qvr::errSecItemNotFound)) {
          qvr::logError(kHasAccessTokenHandler, error);
        }
        handler(token != nullptr);
      });
}

void QVROAuth2TokenManager::requestAccessTokenForProvider(
    qvr::TextView provider, qvr::TextView username,
    QVROAuth2TokenCompletionHandler completionHandler) {
  Request request{this, std::string(identifierForProvider(provider, username).view()),
                  provider.text(), username.text()};
  {
    qvr::MutexLock lock(fields_->completionHandlersByIdentifierLock);
    fields_->completionHandlersByIdentifier[request.identifier].push_back(
        std::move(completionHandler));
  }
  // Every request reads the keychain; only the refresh is shared.
  QVROAuth2Keychain::defaultOAuth2Keychain()->getPasswordDataForService(
      provider, username, nullptr,
      [request = std::move(request)](std::optional<qvr::Data> archive, const qvr::ErrorPtr& error) {
        request.keychainResult(std::move(archive), error);
      });
}

void QVROAuth2TokenManager::cancelRequestForProvider(qvr::TextView provider,
                                                     qvr::TextView username) {
  qvr::MutexLock lock(fields_->tasksByIdentifierLock);
  const auto found = fields_->tasksByIdentifier.find(
      std::string(identifierForProvider(provider, username).view()));
  if (found != fields_->tasksByIdentifier.end()) found->second.task->cancel();
}
