// The desktop, as far as signing in needs it.
#pragma once

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/URL.h"

namespace qvr {
inline namespace v1 {

class QVR_EXPORT Workspace : public Object {
 public:
  // openURL:
  // Opens the URL in the user's default browser. True when a browser took it. May block briefly.
  virtual bool openURL(const URL& url) = 0;
};

}  // namespace v1
}  // namespace qvr
