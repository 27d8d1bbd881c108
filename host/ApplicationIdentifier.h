// The name by which the desktop knows the command with its configuration, and the URI schemes that
// it takes there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/Configuration.h"

namespace host {

// The desktop entry's name and the bus name. Each bundle identifier has its own, so that several
// configurations stand side by side, and all of them are below "org.qvroauth2.command", so that no
// other application's files are ever met.
std::string applicationIdentifier(const Configuration& configuration);

// Whether the name is one that some configuration has.
bool isApplicationIdentifier(std::string_view name);

// The schemes of the redirects that the configuration can bring about, in lower case: that is how
// browsers hand URLs over, and how desktop entries name schemes (RFC 3986 section 3.1).
std::vector<std::string> redirectSchemes(const Configuration& configuration);

}  // namespace host
