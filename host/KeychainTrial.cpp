#include "host/KeychainTrial.h"

#include <string>

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Messages.h"

namespace host {
namespace {

using qvr::KeychainQuery;

constexpr const char* kService = "SignInCheck";

std::optional<Failure> failureForStatus(std::int32_t status, std::string_view kind) {
  if (status == qvr::errSecSuccess) return std::nullopt;
  return failureForKeychainStatus(status, kind, {});
}

// Random bytes: half of them name the item, so that several trials at a time do not meet, and all
// of them are its data.
std::optional<qvr::Data> randomData() {
  qvr::Data bytes(16);
  if (qvr::makeRandomSource()->copyBytes(bytes) != 0) return std::nullopt;
  return bytes;
}

std::string accountFor(const qvr::Data& data) {
  constexpr char kHexDigits[] = "0123456789abcdef";
  std::string name = "check-";
  for (std::size_t i = 0; i < data.size() / 2; ++i)
    name += {kHexDigits[data[i] >> 4], kHexDigits[data[i] & 15]};
  return name;
}

// A keychain that took the item and does not have it is not one where somebody has to sign in.
std::optional<Failure> readingProblem(qvr::KeychainItems& keychain, std::string_view kind,
                                      KeychainQuery item, const qvr::Data& expected) {
  item.emplace(qvr::kSecReturnData, true);
  qvr::Data found;
  const std::int32_t status = keychain.copyMatching(item, &found);
  const bool isLost = status == qvr::errSecItemNotFound || status == qvr::errSecDecode;
  if (isLost || (status == qvr::errSecSuccess && found != expected)) {
    return Failure{kFailed,
                   "The keychain does not give back what was stored in it: use another one "
                   "(`qvr-oauth2 keychain move` carries the tokens over)."};
  }
  return failureForStatus(status, kind);
}

}  // namespace

std::optional<Failure> keychainProblem(qvr::KeychainItems& keychain, std::string_view kind) {
  const auto data = randomData();
  if (!data) return Failure{kFailed, "The system's random generator fails: restart the computer."};
  const KeychainQuery item = {
      {std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
      {std::string(qvr::kSecAttrService), QVROAuth2Keychain::serviceNameForService(kService)},
      {std::string(qvr::kSecAttrAccount), accountFor(*data)}};
  KeychainQuery attributes = item;
  attributes.emplace(qvr::kSecValueData, *data);
  if (auto failure = failureForStatus(keychain.add(attributes), kind)) return failure;
  auto problem = readingProblem(keychain, kind, item, *data);
  const std::int32_t removed = keychain.remove(item);
  if (problem || removed == qvr::errSecItemNotFound) return problem;
  return failureForStatus(removed, kind);
}

}  // namespace host
