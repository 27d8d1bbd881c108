#include <chrono>

#include "QVROAuth2Client/platform/Ports.h"

namespace qvr {
inline namespace v1 {

Clock makeSystemClock() {
  return [] {
    const std::chrono::duration<double> sinceUnixEpoch =
        std::chrono::system_clock::now().time_since_epoch();
    return Date{sinceUnixEpoch.count() - kSecondsFromUnixEpochToReferenceDate};
  };
}

}  // namespace v1
}  // namespace qvr
