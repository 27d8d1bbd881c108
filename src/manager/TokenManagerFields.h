// The manager's two tables, each with its lock. The two are never held together.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "QVROAuth2Client/QVROAuth2TokenManager.h"
#include "src/platform/Mutex.h"

struct QVROAuth2TokenManager::Fields {
  // Oldest first. The list grows in place; nobody sees an older one.
  using CompletionHandlers = std::vector<QVROAuth2TokenCompletionHandler>;

  std::unordered_map<std::string, CompletionHandlers> completionHandlersByIdentifier
      QVR_GUARDED_BY(completionHandlersByIdentifierLock);
  qvr::Mutex completionHandlersByIdentifierLock;

  // The running refresh of each identifier.
  std::unordered_map<std::string, qvr::Ref<qvr::URLSessionDataTask>> tasksByIdentifier
      QVR_GUARDED_BY(tasksByIdentifierLock);
  qvr::Mutex tasksByIdentifierLock;
};
