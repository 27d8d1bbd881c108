// The source of secure random numbers.
#pragma once

#include <cstdint>
#include <span>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"

namespace qvr {
inline namespace v1 {

// Both operations may be called from any thread.
class QVR_EXPORT RandomSource : public Object {
 public:
  // Fills the buffer from the system's cryptographically secure generator. Returns 0, or the status
  // of the failure, and then the buffer's content is not to be used.
  virtual std::int32_t copyBytes(std::span<std::uint8_t> bytes) = 0;

  // A number from 0 up to, not including, `upperBound`, without modulo bias. Cannot fail.
  virtual std::uint32_t uniform(std::uint32_t upperBound) = 0;
};

}  // namespace v1
}  // namespace qvr
