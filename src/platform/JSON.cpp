#include "QVROAuth2Client/platform/JSON.h"

#include <string>

#include "src/platform/JSONMembers.h"
#include "src/platform/JSONReaders.h"

namespace qvr {
namespace {

ErrorPtr errorFor(const JSONFailure& failure) {
  std::string sentence = "The JSON text cannot be read: ";
  sentence.append(failure.reason).append(" at byte offset ");
  sentence.append(std::to_string(failure.byteOffset)).append(".");
  Error::UserInfo userInfo;
  userInfo.emplace_back(NSDebugDescriptionErrorKey, std::move(sentence));
  userInfo.emplace_back(NSJSONSerializationErrorIndexKey,
                        static_cast<std::int64_t>(failure.byteOffset));
  return Error::errorWithDomain(NSCocoaErrorDomain, NSPropertyListReadCorruptError,
                                std::move(userInfo));
}

std::optional<Value> read(std::span<const std::uint8_t> data, const JSONNames& names,
                          ErrorPtr* error) {
  if (std::optional<Value> value = readPlainJSON(data, names)) return value;
  JSONFailure failure;
  std::optional<Value> value = readLenientJSON(data, &failure, names);
  if (!value && error != nullptr) *error = errorFor(failure);
  return value;
}

}  // namespace

std::optional<Value> JSONMembersWithData(std::span<const std::uint8_t> data,
                                         std::span<const std::string_view> names, ErrorPtr* error) {
  return read(data, names, error);
}

inline namespace v1 {

std::optional<Value> JSONObjectWithData(std::span<const std::uint8_t> data, ErrorPtr* error) {
  return read(data, {}, error);
}

}  // namespace v1
}  // namespace qvr
