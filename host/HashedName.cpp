#include "host/HashedName.h"

#include "QVROAuth2Client/QVROAuth2PublicClient.h"

namespace host {
namespace {

constexpr std::size_t kLength = 22;

// Opens the library's own S256 to the command.
struct Hash : QVROAuth2PublicClient {
  using QVROAuth2PublicClient::S256CodeChallengeWithCodeVerifier;
};

}  // namespace

std::string hashedName(std::string_view text) {
  return Hash::S256CodeChallengeWithCodeVerifier(text).value_or("").substr(0, kLength);
}

}  // namespace host
