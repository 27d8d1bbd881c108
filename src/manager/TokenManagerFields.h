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

  // A running refresh, and the record that is due, as it was stored and as it was read.
  struct Refresh {
    qvr::Ref<qvr::URLSessionDataTask> task;
    qvr::Data archive;
    qvr::Ref<QVROAuth2Token> token;
  };
  std::unordered_map<std::string, Refresh> tasksByIdentifier QVR_GUARDED_BY(tasksByIdentifierLock);
  qvr::Mutex tasksByIdentifierLock;
};
