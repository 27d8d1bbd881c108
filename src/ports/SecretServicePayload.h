// What an item holds: the bytes as text, since services mangle others, with a mark and a checksum
// that tell a value of ours from an empty or foreign one.
//
//   QVR1:01234567:BASE64     the mark, the first 32 bits of the data's SHA-256 in hex, the data
#pragma once

#include <optional>

#include "QVROAuth2Client/platform/Value.h"
#include "src/ports/ByteFields.h"
#include "src/ports/SecretBytes.h"

namespace qvr {

SecretBytes encodeSecretServicePayload(Bytes data);

// Nothing when it is not such a text.
std::optional<Data> decodeSecretServicePayload(Bytes payload);

}  // namespace qvr
