#include "QVROAuth2Client/QVROAuth2Base64URL.h"

#include <algorithm>
#include <array>

#include "src/platform/Crypto.h"
#include "src/platform/Unicode.h"

namespace {

constexpr std::int8_t kForeign = -1;
constexpr std::int8_t kPadding = -2;

// The six bits of each character of the standard alphabet.
constexpr std::array<std::int8_t, 256> makeSextets() {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::int8_t, 256> sextets{};
  sextets.fill(kForeign);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    sextets[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
  }
  sextets['='] = kPadding;
  return sextets;
}

constexpr std::array<std::int8_t, 256> kSextets = makeSextets();

// The standard decoder. Unused bits of the last character need not be zero.
class Base64Decoder {
 public:
  explicit Base64Decoder(bool ignoresUnknownCharacters) : ignores_(ignoresUnknownCharacters) {}

  std::optional<qvr::Data> decode(std::string_view text) {
    data_.reserve(text.size() / 4 * 3);
    for (const char character : text) {
      if (!take(kSextets[static_cast<unsigned char>(character)])) return std::nullopt;
    }
    if (!isComplete()) return std::nullopt;
    return std::move(data_);
  }

 private:
  bool take(std::int8_t sextet) {
    if (sextet == kForeign) return ignores_;
    if (sextet == kPadding) {
      ++padding_;
      return true;
    }
    if (padding_ > 0) return false;  // padding ends the text
    accumulator_ = (accumulator_ << 6) | static_cast<std::uint32_t>(sextet);
    ++digits_;
    if (digits_ % 4 != 1) {
      data_.push_back(static_cast<std::uint8_t>(accumulator_ >> (6 - 2 * ((digits_ - 1) % 4))));
    }
    return true;
  }

  bool isComplete() const { return padding_ == (4 - digits_ % 4) % 4 && padding_ < 3; }

  const bool ignores_;
  std::uint32_t accumulator_ = 0;
  std::size_t digits_ = 0;
  std::size_t padding_ = 0;
  qvr::Data data_;
};

}  // namespace

std::optional<qvr::Data> qvr_initWithBase64URLEncodedString(qvr::TextView text,
                                                            std::uint64_t options) {
  if (!text.has_value()) return std::nullopt;
  std::string prepared(text.view());
  std::replace(prepared.begin(), prepared.end(), '-', '+');
  std::replace(prepared.begin(), prepared.end(), '_', '/');
  const std::size_t remainder = qvr::UTF16Length(prepared) % 4;
  if (remainder >= 2) prepared.append(4 - remainder, '=');
  const bool ignores = (options & QVROAuth2Base64DecodingIgnoreUnknownCharacters) != 0;
  return Base64Decoder(ignores).decode(prepared);
}

std::string qvr_base64URLEncodedString(const qvr::Data& data) {
  std::string text = qvr::base64Encoded(data);
  std::replace(text.begin(), text.end(), '+', '-');
  std::replace(text.begin(), text.end(), '/', '_');
  return text;
}

std::string qvr_base64URLEncodedStringNoPadding(const qvr::Data& data) {
  std::string text = qvr_base64URLEncodedString(data);
  const std::size_t padding = text.find('=');
  if (padding != std::string::npos) text.resize(padding);
  return text;
}
