#include "src/ports/SecretServicePayload.h"

#include <sodium.h>

#include <algorithm>
#include <string>

#include "src/platform/Crypto.h"

namespace qvr {

namespace {

constexpr std::string_view kMark = "QVR1:";
constexpr std::size_t kChecksumBytes = 4;

// All that stands before the data's base64.
std::string headOf(Bytes data) {
  const auto digest = SHA256(data);
  std::array<char, 2 * kChecksumBytes + 1> digits;
  sodium_bin2hex(digits.data(), digits.size(), digest.data(), kChecksumBytes);
  return std::string(kMark).append(digits.data()).append(":");
}

constexpr std::size_t kHeadSize = kMark.size() + 2 * kChecksumBytes + 1;

std::optional<Data> decodeBase64(Bytes text) {
  if (text.empty()) return Data();  // which has no address to decode to
  Data data(text.size());
  std::size_t size = 0;
  const int result =
      sodium_base642bin(data.data(), data.size(), reinterpret_cast<const char*>(text.data()),
                        text.size(), nullptr, &size, nullptr, sodium_base64_VARIANT_ORIGINAL);
  if (result != 0) return std::nullopt;
  data.resize(size);
  return data;
}

}  // namespace

SecretBytes encodeSecretServicePayload(Bytes data) {
  const std::string head = headOf(data);
  std::string text = base64Encoded(data);
  SecretBytes payload(head.size() + text.size());
  std::ranges::copy(text, std::ranges::copy(head, payload.data()).out);
  wipe(text.data(), text.size());
  return payload;
}

std::optional<Data> decodeSecretServicePayload(Bytes payload) {
  if (payload.size() < kHeadSize) return std::nullopt;
  std::optional<Data> data = decodeBase64(payload.subspan(kHeadSize));
  if (!data) return std::nullopt;
  if (std::ranges::equal(bytesOf(headOf(*data)), payload.first(kHeadSize))) return data;
  wipe(data->data(), data->size());
  return std::nullopt;
}

}  // namespace qvr
