#include "src/ports/SecretServicePayload.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

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

constexpr std::uint8_t kForeign = 0xff;

// The six bits of each character (RFC 4648 section 4).
constexpr std::array<std::uint8_t, 256> makeSextets() {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::uint8_t, 256> sextets{};
  sextets.fill(kForeign);
  for (std::size_t index = 0; index < alphabet.size(); ++index)
    sextets[static_cast<std::uint8_t>(alphabet[index])] = static_cast<std::uint8_t>(index);
  return sextets;
}

constexpr std::array<std::uint8_t, 256> kSextets = makeSextets();

// Writes the three bytes of four characters; false when one of them is foreign.
bool decodeQuartet(const std::uint8_t* text, std::uint8_t* bytes) {
  const std::uint32_t a = kSextets[text[0]], b = kSextets[text[1]], c = kSextets[text[2]],
                      d = kSextets[text[3]];
  const std::uint32_t bits = a << 18 | b << 12 | c << 6 | d;
  bytes[0] = static_cast<std::uint8_t>(bits >> 16);
  bytes[1] = static_cast<std::uint8_t>(bits >> 8);
  bytes[2] = static_cast<std::uint8_t>(bits);
  return (a | b | c | d) != kForeign;
}

// The last quartet with its padding read as zero bits. What they and the unused bits before them
// make has to be zero, so that no data has two texts.
bool decodeLastQuartet(const std::uint8_t* text, std::size_t padding, std::uint8_t* bytes) {
  std::array<std::uint8_t, 4> filled;
  std::copy_n(text, filled.size(), filled.begin());
  std::fill_n(filled.rbegin(), padding, std::uint8_t{'A'});
  if (!decodeQuartet(filled.data(), bytes)) return false;
  return std::all_of(bytes + 3 - padding, bytes + 3, [](std::uint8_t byte) { return byte == 0; });
}

std::size_t paddingOf(Bytes text) {
  if (text.back() != '=') return 0;
  return text[text.size() - 2] == '=' ? 2 : 1;
}

// Padded base64 on one line, and nothing else. libsodium's decoder takes several times as long as
// all the rest that a keyring's item has to go through here.
std::optional<Data> decodeBase64(Bytes text) {
  if (text.empty()) return Data();
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = paddingOf(text);
  const std::size_t last = text.size() / 4 - 1;
  Data data((last + 1) * 3);
  bool isSound = decodeLastQuartet(&text[last * 4], padding, &data[last * 3]);
  for (std::size_t index = 0; index < last; ++index)
    isSound &= decodeQuartet(&text[index * 4], &data[index * 3]);
  data.resize(data.size() - padding);
  if (isSound) return data;
  wipe(data.data(), data.size());
  return std::nullopt;
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
