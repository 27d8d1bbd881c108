// The JSON reader (RFC 8259), for bodies of the token and revocation endpoints and for what a
// host's own provider sends.
//
// Thread rule: a free function without state. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Value.h"

namespace qvr {
inline namespace v1 {

// JSONObjectWithData:options:error:
// Reads an array or an object. Of two equal keys the first wins; a byte order mark is skipped;
// UTF-16 and UTF-32 are read; a trailing comma is accepted; nesting goes up to 512. Nothing, with
// NSCocoaErrorDomain 3840 in *error, for everything else; the error's userInfo has the reason with
// the byte offset under NSDebugDescriptionErrorKey and the offset under
// NSJSONSerializationErrorIndexKey. `error` may be null.
QVR_EXPORT std::optional<Value> JSONObjectWithData(std::span<const std::uint8_t> data,
                                                   ErrorPtr* error);

}  // namespace v1
}  // namespace qvr
