// base64url (RFC 4648 section 5), with padding and, as RFC 7515 uses it, without.
//
// Thread rule: pure functions, for any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"

// Options of the decoder.
enum QVROAuth2Base64DecodingOptions : std::uint64_t {
  QVROAuth2Base64DecodingStrict = 0,                   // a foreign character makes it fail
  QVROAuth2Base64DecodingIgnoreUnknownCharacters = 1,  // foreign characters are skipped
};

// qvr_initWithBase64URLEncodedString:options:
// The bytes that the text encodes, or nothing when it is not valid. Both alphabets are accepted,
// even mixed. Missing padding is supplied by the length of the whole text, characters that the
// option skips included, so with that option text holding white space may be refused.
QVR_EXPORT std::optional<qvr::Data> qvr_initWithBase64URLEncodedString(qvr::TextView text,
                                                                       std::uint64_t options);

// qvr_base64URLEncodedString
// One line, padded with "=" to a multiple of four characters.
QVR_EXPORT std::string qvr_base64URLEncodedString(const qvr::Data& data);

// qvr_base64URLEncodedStringNoPadding
// The same without its trailing "=".
QVR_EXPORT std::string qvr_base64URLEncodedStringNoPadding(const qvr::Data& data);
