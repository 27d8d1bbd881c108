// The registry of pending authorization attempts: one for the process, whatever the client's class.
#pragma once

#include <string>
#include <unordered_map>

#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "src/platform/Mutex.h"

struct PendingAuthorizations {
  qvr::Mutex authorizationCompletionHandlersLock;

  // The stored handler of each attempt by its state.
  std::unordered_map<std::string, QVROAuth2AuthorizationCompletionHandler>
      authorizationCompletionHandlers QVR_GUARDED_BY(authorizationCompletionHandlersLock);

  // The registry itself; made when a client first asks for it.
  static PendingAuthorizations& shared();

  // Stores a handler, replacing one with the same state.
  void store(const std::string& state, QVROAuth2AuthorizationCompletionHandler handler);

  // Takes the handler out; empty when there is none. Look-up and removal are one step, so that a
  // redirect and a cancellation that race get it only once.
  QVROAuth2AuthorizationCompletionHandler take(const std::string& state);
};
