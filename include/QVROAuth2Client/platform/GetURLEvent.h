// How a redirect reaches the library.
#pragma once

#include <cstdint>
#include <optional>

#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
inline namespace v1 {

// What the desktop told the host when the browser was redirected to the host's URI scheme: a URL
// text, or else the number and text of a failure. Each may be absent.
struct GetURLEvent {
  Text directObject;                        // '----'
  std::optional<std::int32_t> errorNumber;  // 'errn'; read as 0 when absent
  Text errorString;                         // 'errs'
};

}  // namespace v1
}  // namespace qvr
