// Archives for tests: a record's entries, the example, and hand-made containers.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "src/platform/KeyedArchive.h"

namespace archive_support {

inline constexpr std::string_view kRecordClass = "QVROAuth2Token";

using Entries = std::vector<std::pair<std::string, qvr::CodedValue>>;

// The record of the example: accessToken "at", tokenType "Bearer", expiresIn 3600, refreshToken
// "rt", grantedScopes {"mail", "openid"}, creationDate 700000000.5. Then the same with no values.
Entries exampleEntries();
Entries nilEntries();

// The example as other archivers write it: 543 bytes.
qvr::Data exampleArchive();

// What archiveRootObject makes of the entries; the test fails, and the data is empty, when it makes
// nothing.
qvr::Data archive(const Entries& entries, std::string_view className = kRecordClass);

// The result of reading the record's six entries, in their order, as a token record does.
struct Reading {
  bool succeeded = false;
  bool decodeCalled = false;
  qvr::ErrorPtr error;
  Entries entries;

  // What NSDebugDescription says; empty without one.
  std::string reason() const;
};

// Reads, and checks what holds for every input: values only of the class asked for, all text UTF-8,
// and an error exactly on failure, of one of the two documented forms.
Reading read(std::span<const std::uint8_t> archive, std::string_view className = kRecordClass);

// A line for each entry, to compare with and to print.
std::string render(const Entries& entries);
std::string hex(std::string_view bytes);
std::string bigEndian(std::uint64_t value, std::size_t width);

// Encoded objects of a binary property list, and the file that they make. Nothing is checked.
std::string asciiObject(std::string_view text);
std::string integerObject(std::uint64_t value, std::size_t width);
std::string uidObject(std::uint64_t value, std::size_t width = 1);
std::string arrayObject(const std::vector<std::uint64_t>& references, std::size_t width = 1);
std::string dictionaryObject(const std::vector<std::uint64_t>& keys,
                             const std::vector<std::uint64_t>& values, std::size_t width = 1);

struct File {
  std::vector<std::string> objects;
  std::size_t offsetWidth = 2;
  std::size_t referenceWidth = 1;
  std::uint64_t top = 0;

  qvr::Data data() const;
};

// A file whose objects stand where `offsets` says, in bytes that follow the magic.
qvr::Data fileWithOffsets(const std::string& body, const std::vector<std::uint64_t>& offsets,
                          std::size_t offsetWidth, std::size_t referenceWidth,
                          std::uint64_t top = 0);

}  // namespace archive_support
