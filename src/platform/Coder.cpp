#include "QVROAuth2Client/platform/Coder.h"

namespace qvr {
inline namespace v1 {

Coder::~Coder() = default;

}  // namespace v1
}  // namespace qvr
