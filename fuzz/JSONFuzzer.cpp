// JSON: whatever the bytes, there is either an array or an object or an error, and the error says
// where.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QVROAuth2Client/platform/JSON.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qvr::ErrorPtr error;
  const auto value = qvr::JSONObjectWithData({data, size}, &error);
  check(value.has_value() == (error == nullptr));
  if (value) {
    check(value->as<qvr::Value::Array>() != nullptr || value->as<qvr::Value::Object>() != nullptr);
    return 0;
  }
  check(error->is(qvr::NSCocoaErrorDomain, qvr::NSPropertyListReadCorruptError));
  check(error->userInfoValue(qvr::NSDebugDescriptionErrorKey) != nullptr);
  const qvr::Value* index = error->userInfoValue(qvr::NSJSONSerializationErrorIndexKey);
  check(index != nullptr && index->numberValue().has_value());
  return 0;
}
