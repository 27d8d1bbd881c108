// Keyed archives: whatever the bytes, reading ends, and what is read can be written and read again.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "src/platform/KeyedArchive.h"

namespace {

using qvr::CodedClass;
using qvr::CodedValue;
using qvr::Coder;
using Entries = std::vector<std::pair<std::string_view, CodedValue>>;

constexpr std::string_view kRecordClass = "QVROAuth2Token";
constexpr std::pair<std::string_view, CodedClass> kFields[] = {
    {"QVR.accessToken", CodedClass::kString},         {"QVR.tokenType", CodedClass::kString},
    {"QVR.expiresIn", CodedClass::kNumber},           {"QVR.refreshToken", CodedClass::kString},
    {"QVR.grantedScopes", CodedClass::kSetOfStrings}, {"QVR.creationDate", CodedClass::kDate}};

bool read(std::span<const std::uint8_t> archive, Entries* entries) {
  const auto decode = [entries](Coder& coder) {
    for (const auto& [key, codedClass] : kFields) {
      entries->emplace_back(key, coder.decodeObject(codedClass, key));
    }
  };
  qvr::ErrorPtr error;
  const bool succeeded = qvr::unarchiveRootObject(archive, kRecordClass, decode, &error);
  if (succeeded == static_cast<bool>(error)) std::abort();
  return succeeded;
}

bool isFinite(const CodedValue& value) {
  if (const auto* number = std::get_if<double>(&value)) return std::isfinite(*number);
  const auto* date = std::get_if<qvr::Date>(&value);
  return date == nullptr || std::isfinite(date->timeIntervalSinceReferenceDate);
}

void checkRoundTrip(const Entries& entries) {
  for (const auto& entry : entries) {
    if (!isFinite(entry.second)) return;
  }
  const auto encode = [&entries](Coder& coder) {
    for (const auto& [key, value] : entries)
      coder.encodeObject(value, key);
  };
  const auto data = qvr::archiveRootObject(kRecordClass, encode, nullptr);
  if (!data) return;  // shared strings, written apart, may make it too long
  Entries again;
  if (!read(*data, &again) || again != entries) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Entries entries;
  if (read({data, size}, &entries)) checkRoundTrip(entries);
  return 0;
}
