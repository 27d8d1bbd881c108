#include "QVROAuth2Client/platform/KeychainItems.h"

#include <array>
#include <utility>

namespace qvr {
inline namespace v1 {

namespace {

using StatusMessage = std::pair<KeychainStatus, std::string_view>;

constexpr std::array<StatusMessage, 13> kMessages = {{
    {errSecItemNotFound, "The specified item could not be found in the keychain."},
    {errSecDuplicateItem, "The specified item already exists in the keychain."},
    {errSecInteractionNotAllowed, "User interaction is not allowed."},
    {errSecUserCanceled, "User canceled the operation."},
    {errSecAuthFailed, "The user name or passphrase you entered is not correct."},
    {errSecNotAvailable, "No keychain is available. You may need to restart your computer."},
    {errSecIO, "I/O error."},
    {errSecDiskFull, "The disk is full."},
    {errSecWrPerm, "Write permissions error."},
    {errSecDecode, "Unable to decode the provided data."},
    {errSecInvalidKeychain, "The specified keychain is not a valid keychain file."},
    {errSecParam, "One or more parameters passed to a function were not valid."},
    {errSecAllocate, "Failed to allocate memory."},
}};

}  // namespace

Text KeychainItems::messageForStatus(std::int32_t status) const {
  for (const auto& [known, message] : kMessages) {
    if (known == status) return std::string(message);
  }
  return std::nullopt;
}

}  // namespace v1
}  // namespace qvr
