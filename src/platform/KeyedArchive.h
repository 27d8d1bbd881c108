// Keyed archives: one root object with keyed entries, in a binary property list.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include "QVROAuth2Client/platform/Coder.h"
#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Text.h"

namespace qvr {

// Archives a root object of the named class, which `encode` writes. Nothing, with
// NSCocoaErrorDomain 4866 (without userInfo) in *error, when an entry cannot be written: text that
// is not UTF-8, a date or number that is not finite; nor when the archive would be longer than the
// 1 MiB that is read back.
std::optional<Data> archiveRootObject(std::string_view className,
                                      const std::function<void(Coder&)>& encode, ErrorPtr* error);

// Reads an archive whose root object is of the named class or has it as an ancestor; `decode` reads
// the entries, and is not called before the container and every reference have been checked. True
// on success. False, with *error set: NSCocoaErrorDomain 4865 (without userInfo) when there is no
// root object, 4864 (NSDebugDescription says why) for everything else, an entry of a wrong class
// included. No input makes it recurse, or do more work than its length warrants; over 1 MiB is
// refused.
bool unarchiveRootObject(std::span<const std::uint8_t> archive, std::string_view className,
                         const std::function<void(Coder&)>& decode, ErrorPtr* error);

}  // namespace qvr
