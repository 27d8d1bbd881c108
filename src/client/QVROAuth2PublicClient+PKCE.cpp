// The random values of an attempt: the state, and the code verifier with its challenge (RFC 7636).

#include <array>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"
#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "src/platform/Crypto.h"
#include "src/platform/World.h"

namespace {

constexpr std::size_t kStateByteCount = 32;
constexpr std::size_t kCodeVerifierLength = 128;

// RFC 7636 section 4.1: the unreserved characters.
constexpr std::string_view kCodeVerifierAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

}  // namespace

qvr::Text QVROAuth2PublicClient::generateRandomBytesAndReturnError(qvr::ErrorPtr* error) {
  std::array<std::uint8_t, kStateByteCount> bytes{};
  const std::int32_t status = qvr::World::current().randomSource()->copyBytes(bytes);
  if (status == 0) return qvr::base64Encoded(bytes);
  if (error != nullptr) *error = qvr::Error::errorWithDomain(qvr::NSOSStatusErrorDomain, status);
  return std::nullopt;
}

std::string QVROAuth2PublicClient::generateCodeVerifier() {
  const qvr::Ref<qvr::RandomSource> random = qvr::World::current().randomSource();
  std::string codeVerifier(kCodeVerifierLength, '\0');
  for (char& character : codeVerifier) {
    character = kCodeVerifierAlphabet[random->uniform(kCodeVerifierAlphabet.size())];
  }
  return codeVerifier;
}

qvr::Text QVROAuth2PublicClient::S256CodeChallengeWithCodeVerifier(qvr::TextView codeVerifier) {
  if (!codeVerifier.has_value()) return std::nullopt;
  // The verifier is hashed as a NUL-terminated string.
  const std::string_view hashed = codeVerifier.view().substr(0, codeVerifier.view().find('\0'));
  const auto digest =
      qvr::SHA256({reinterpret_cast<const std::uint8_t*>(hashed.data()), hashed.size()});
  return qvr_base64URLEncodedStringNoPadding(qvr::Data(digest.begin(), digest.end()));
}
