#include "tests/platform/ArchiveSupport.h"

#include <gtest/gtest.h>

#include <bit>

#include "src/platform/Unicode.h"

namespace archive_support {

using qvr::CodedClass;
using qvr::CodedValue;
using qvr::Data;
using qvr::Date;
using qvr::TextSet;

namespace {

struct Field {
  const char* key;
  CodedClass codedClass;
};

constexpr Field kFields[] = {
    {"QVR.accessToken", CodedClass::kString},         {"QVR.tokenType", CodedClass::kString},
    {"QVR.expiresIn", CodedClass::kNumber},           {"QVR.refreshToken", CodedClass::kString},
    {"QVR.grantedScopes", CodedClass::kSetOfStrings}, {"QVR.creationDate", CodedClass::kDate}};

constexpr std::string_view kExample =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f626a65"
    "63747312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001ad0b0c1b1c1d1e1f252627"
    "2d313455246e756c6cd70d0e0f101112131415161718191a5f100f5156522e616363657373546f6b656e5d5156522e"
    "746f6b656e547970655d5156522e65787069726573496e5f10105156522e72656672657368546f6b656e5f10115156"
    "522e6772616e74656453636f7065735f10105156522e6372656174696f6e446174655624636c617373800280038004"
    "80058006800a800c52617456426561726572110e10527274d2201321245a4e532e6f626a65637473a2222380078008"
    "8009546d61696c566f70656e6964d228292a2b5824636c61737365735a24636c6173736e616d65a22b2c554e535365"
    "74584e534f626a656374d22e132f30574e532e74696d652341c4dc9380400000800bd228293233a2332c564e534461"
    "7465d228293536a2362c5e5156524f4175746832546f6b656e00080011001a00240029003200370049004c00510053"
    "0061006700760088009600a400b700cb00de00e500e700e900eb00ed00ef00f100f300f600fd010001030108011301"
    "160118011a011c01210128012d013601410144014a0153015801600169016b01700173017a017f0182000000000000"
    "0201000000000000003700000000000000000000000000000191";

bool isOfClass(const CodedValue& value, CodedClass codedClass) {
  if (std::holds_alternative<std::monostate>(value)) return true;
  switch (codedClass) {
    case CodedClass::kString:
      return std::holds_alternative<std::string>(value);
    case CodedClass::kNumber:
      return std::holds_alternative<std::int64_t>(value) || std::holds_alternative<double>(value);
    case CodedClass::kSetOfStrings:
      return std::holds_alternative<TextSet>(value);
    case CodedClass::kDate:
      break;
  }
  return std::holds_alternative<Date>(value);
}

bool isWellFormed(const CodedValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return qvr::isUTF8(*text);
  const auto* set = std::get_if<TextSet>(&value);
  if (set == nullptr) return true;
  for (const std::string& member : *set) {
    if (!qvr::isUTF8(member)) return false;
  }
  return true;
}

void checkError(const Reading& reading) {
  if (reading.succeeded) {
    EXPECT_EQ(reading.error, nullptr);
    return;
  }
  ASSERT_NE(reading.error, nullptr);
  EXPECT_EQ(reading.error->domain(), qvr::NSCocoaErrorDomain);
  if (reading.error->code() == qvr::NSCoderValueNotFoundError) {
    EXPECT_EQ(reading.error->userInfo(), nullptr);
    return;
  }
  EXPECT_EQ(reading.error->code(), qvr::NSCoderReadCorruptError);
  EXPECT_FALSE(reading.reason().empty());
}

struct Renderer {
  std::string operator()(std::monostate) const { return "nil"; }
  std::string operator()(const std::string& text) const { return "string " + hex(text); }
  std::string operator()(std::int64_t number) const { return "integer " + std::to_string(number); }
  std::string operator()(double number) const { return "real " + bits(number); }
  std::string operator()(Date date) const {
    return "date " + bits(date.timeIntervalSinceReferenceDate);
  }
  std::string operator()(const TextSet& set) const {
    std::string text = "set";
    for (const std::string& member : set)
      text += " [" + hex(member) + "]";
    return text;
  }
  static std::string bits(double number) {
    return hex(bigEndian(std::bit_cast<std::uint64_t>(number), 8));
  }
};

// An object whose length is in its marker, or behind it.
std::string object(std::size_t type, std::size_t length, const std::string& payload) {
  if (length < 15) return bigEndian(type << 4 | length, 1) + payload;
  return bigEndian(type << 4 | 0xF, 1) + integerObject(length, 4) + payload;
}

}  // namespace

Entries exampleEntries() {
  return {{"QVR.accessToken", "at"},
          {"QVR.tokenType", "Bearer"},
          {"QVR.expiresIn", std::int64_t{3600}},
          {"QVR.refreshToken", "rt"},
          {"QVR.grantedScopes", TextSet{"mail", "openid"}},
          {"QVR.creationDate", Date{700000000.5}}};
}

Entries nilEntries() {
  Entries entries;
  for (const Field& field : kFields)
    entries.emplace_back(field.key, CodedValue());
  return entries;
}

Data exampleArchive() {
  Data data;
  for (std::size_t i = 0; i < kExample.size(); i += 2) {
    const std::string byte(kExample.substr(i, 2));
    data.push_back(static_cast<std::uint8_t>(std::stoul(byte, nullptr, 16)));
  }
  return data;
}

Data archive(const Entries& entries, std::string_view className) {
  qvr::ErrorPtr error;
  const auto encode = [&entries](qvr::Coder& coder) {
    for (const auto& [key, value] : entries)
      coder.encodeObject(value, key);
  };
  const auto data = qvr::archiveRootObject(className, encode, &error);
  EXPECT_TRUE(data.has_value());
  EXPECT_EQ(error, nullptr);
  return data.value_or(Data());
}

std::string Reading::reason() const {
  const qvr::Value* value =
      error != nullptr ? error->userInfoValue(qvr::NSDebugDescriptionErrorKey) : nullptr;
  return value != nullptr ? value->text().value_or("") : "";
}

Reading read(std::span<const std::uint8_t> archive, std::string_view className) {
  Reading reading;
  const auto decode = [&reading](qvr::Coder& coder) {
    reading.decodeCalled = true;
    for (const Field& field : kFields) {
      CodedValue value = coder.decodeObject(field.codedClass, field.key);
      EXPECT_TRUE(isOfClass(value, field.codedClass)) << field.key;
      EXPECT_TRUE(isWellFormed(value)) << field.key;
      reading.entries.emplace_back(field.key, std::move(value));
    }
  };
  reading.succeeded = qvr::unarchiveRootObject(archive, className, decode, &reading.error);
  checkError(reading);
  return reading;
}

std::string render(const Entries& entries) {
  std::string text;
  for (const auto& [key, value] : entries)
    text += key + " " + std::visit(Renderer(), value) + "\n";
  return text;
}

std::string hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
  }
  return text;
}

std::string bigEndian(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  for (std::size_t i = width; i-- > 0; value >>= 8)
    bytes[i] = static_cast<char>(value & 0xFF);
  return bytes;
}

std::string asciiObject(std::string_view text) {
  return object(0x5, text.size(), std::string(text));
}

std::string integerObject(std::uint64_t value, std::size_t width) {
  return std::string(1, static_cast<char>(0x10 | std::countr_zero(width))) +
         bigEndian(value, width);
}

std::string uidObject(std::uint64_t value, std::size_t width) {
  return bigEndian(0x80 | (width - 1), 1) + bigEndian(value, width);
}

std::string arrayObject(const std::vector<std::uint64_t>& references, std::size_t width) {
  std::string payload;
  for (const std::uint64_t reference : references)
    payload += bigEndian(reference, width);
  return object(0xA, references.size(), payload);
}

std::string dictionaryObject(const std::vector<std::uint64_t>& keys,
                             const std::vector<std::uint64_t>& values, std::size_t width) {
  std::string payload;
  for (const std::uint64_t key : keys)
    payload += bigEndian(key, width);
  for (const std::uint64_t value : values)
    payload += bigEndian(value, width);
  return object(0xD, keys.size(), payload);
}

Data File::data() const {
  std::string body;
  std::vector<std::uint64_t> offsets;
  for (const std::string& encoded : objects) {
    offsets.push_back(8 + body.size());
    body += encoded;
  }
  return fileWithOffsets(body, offsets, offsetWidth, referenceWidth, top);
}

Data fileWithOffsets(const std::string& body, const std::vector<std::uint64_t>& offsets,
                     std::size_t offsetWidth, std::size_t referenceWidth, std::uint64_t top) {
  std::string bytes = "bplist00" + body;
  const std::uint64_t table = bytes.size();
  for (const std::uint64_t offset : offsets)
    bytes += bigEndian(offset, offsetWidth);
  bytes += bigEndian(0, 6) + bigEndian(offsetWidth, 1) + bigEndian(referenceWidth, 1) +
           bigEndian(offsets.size(), 8) + bigEndian(top, 8) + bigEndian(table, 8);
  return Data(bytes.begin(), bytes.end());
}

}  // namespace archive_support
