// What `qvr-oauth2 config` says and writes.
#pragma once

#include <string>
#include <string_view>

#include "host/Configuration.h"

namespace host {

// The bundle identifier of a user who has no wish of their own.
inline constexpr std::string_view kDefaultBundleIdentifier = "org.qvroauth2.command";

// Where to register, what to enter there and what to write down.
std::string googleInstructions(std::string_view bundleIdentifier);
std::string microsoftInstructions(std::string_view bundleIdentifier);

// The scheme that Google gives a client of its own ("com.googleusercontent.apps." and the
// identifier's first part), or the bundle identifier for an identifier of another form.
std::string suggestedURIScheme(std::string_view clientIdentifier,
                               std::string_view bundleIdentifier);

// The whole file, with a comment for each value. With `hideSecrets` the client secret stands as its
// length.
std::string configurationText(const Configuration& configuration, bool hideSecrets = false);

// Every line of the text behind "# ".
std::string asComment(std::string_view text);

}  // namespace host
