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

KeychainQuery itemOf(const qvr::Data& data) {
  return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
          {std::string(qvr::kSecAttrService), QVROAuth2Keychain::serviceNameForService(kService)},
          {std::string(qvr::kSecAttrAccount), accountFor(data)}};
}

std::string textIn(const KeychainQuery& query, std::string_view key) {
  return *query.at(std::string(key)).as<std::string>();
}

// An item that stays is named, so that the user can remove it. A keyring may ask before it removes
// one: nobody said yes then, and the words about unlocking would mislead.
std::optional<Failure> removingProblem(qvr::KeychainItems& keychain, std::string_view kind,
                                       const KeychainQuery& item) {
  const std::int32_t status = keychain.remove(item);
  if (status == qvr::errSecSuccess || status == qvr::errSecItemNotFound) return std::nullopt;
  const bool isRefused =
      status == qvr::errSecUserCanceled || status == qvr::errSecInteractionNotAllowed;
  auto failure = failureForKeychainStatus(status, kind);
  failure.sentence = "An item that was stored as a trial could not be removed" +
                     (isRefused ? ", since nobody allowed it. " : ". " + failure.sentence + " ") +
                     "It holds no token, has the service \"" + textIn(item, qvr::kSecAttrService) +
                     "\" and the account \"" + textIn(item, qvr::kSecAttrAccount) +
                     "\", and can be removed by hand.";
  return failure;
}

std::optional<qvr::Data> dataOrFailure(std::optional<Failure>* failure) {
  auto data = randomData();
  if (!data) *failure = {kFailed, "The system's random generator fails: restart the computer."};
  return data;
}

}  // namespace

std::optional<Failure> roundTripProblem(qvr::KeychainItems& keychain, std::string_view kind) {
  std::optional<Failure> failure;
  const auto data = dataOrFailure(&failure);
  if (!data) return failure;
  const KeychainQuery item = itemOf(*data);
  KeychainQuery attributes = item;
  attributes.emplace(qvr::kSecValueData, *data);
  if (auto problem = failureForStatus(keychain.add(attributes), kind)) return problem;
  auto problem = readingProblem(keychain, kind, item, *data);
  const auto staying = removingProblem(keychain, kind, item);
  if (!problem) return staying;
  if (staying) problem->sentence += " " + staying->sentence;
  return problem;
}

std::optional<Failure> lookUpProblem(qvr::KeychainItems& keychain, std::string_view kind) {
  std::optional<Failure> failure;
  const auto data = dataOrFailure(&failure);
  if (!data) return failure;
  const std::int32_t status = keychain.copyMatching(itemOf(*data), nullptr);
  if (status == qvr::errSecItemNotFound) return std::nullopt;
  return failureForStatus(status, kind);
}

std::optional<Failure> keychainProblem(qvr::KeychainItems& keychain, std::string_view kind) {
  return kind == kSecretService ? lookUpProblem(keychain, kind) : roundTripProblem(keychain, kind);
}

}  // namespace host
