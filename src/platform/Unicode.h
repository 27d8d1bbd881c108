// UTF-8 checks and the counts that the library's texts and ranges are measured in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvr {

// True for well-formed UTF-8 (RFC 3629: no overlong form, no surrogate, nothing above U+10FFFF).
bool isUTF8(std::string_view bytes);

// The number of bytes before the first that is not part of well-formed UTF-8.
std::size_t wellFormedLength(std::string_view bytes);

// The length in UTF-16 code units; a byte that is not part of well-formed UTF-8 counts as one.
std::size_t UTF16Length(std::string_view text);

// Appends a code point (a Unicode scalar value) as UTF-8.
void appendUTF8(std::string& text, char32_t codePoint);

// Conversions with UTF-16 code units. Each answers whether its input was well-formed; the output is
// complete only then.
bool UTF8FromUTF16(std::u16string_view units, std::string* text);
bool UTF16FromUTF8(std::string_view text, std::u16string* units);

}  // namespace qvr
