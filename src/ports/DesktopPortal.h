// The way out of a sandbox: the desktop's portal opens a web address for an application that may
// not start programs of the host system (org.freedesktop.portal.OpenURI).
#pragma once

#include <chrono>
#include <string>

namespace qvr {

struct PortalOptions {
  std::string busAddress;                     // empty for the session's own
  std::chrono::milliseconds callTimeout;      // for the bus, and for the portal, to answer
  std::chrono::milliseconds failurePatience;  // how long a failure may take to come afterwards
};

enum class PortalOutcome {
  kTaken,   // the portal took the address, and did not report a failure in time
  kFailed,  // it refused, reported a failure, or did not answer
  kAbsent,  // there is no bus or no portal: the address was shown to nobody
};

PortalOutcome openByPortal(const std::string& url, const PortalOptions& options);

}  // namespace qvr
