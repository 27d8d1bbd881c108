// libcurl's easy handles of a session, used again for request after request: making one and giving
// it its many options costs more than what the request needs of its own. A handle that is kept also
// remembers the TLS sessions of its connections, so that the next connection can resume one (RFC
// 8446 section 2.2).
#pragma once

#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/CurlLibrary.h"

namespace qvr {

// Thread rule: one thread at a time.
class CurlSessionHandles {
 public:
  CurlSessionHandles(const CurlLibrary& curl, const URLSessionOptions& options);
  ~CurlSessionHandles();
  CurlSessionHandles(const CurlSessionHandles&) = delete;
  CurlSessionHandles& operator=(const CurlSessionHandles&) = delete;

  // A handle with the options that are the same for every request; null when there is none, and
  // then `result` says why.
  CURL* take(CURLcode& result);

  // Takes back a handle that is in no session and refers to nothing of its request any more.
  void giveBack(CURL* handle);

  // For a handle whose transfer did not come to a good end.
  void discard(CURL* handle) { curl_.easyCleanup(handle); }

 private:
  CURL* make(CURLcode& result) const;

  const CurlLibrary& curl_;
  const bool usesHTTP2_;
  const std::string certificateAuthorityFile_;
  std::vector<CURL*> kept_;
};

}  // namespace qvr
