// What must not be printed: every secret that the command gets hold of is told here, and is taken
// out of whatever goes to standard error. A server may echo a token in its error text.
//
// Thread rule: any thread.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Remembers a secret for the life of the process, as it is and percent-encoded. Texts under eight
// characters are not kept: taking out a word of that length would mangle sentences, and tell what
// the secret is.
void keepSecret(std::string_view secret);

// The text with every secret replaced by "{length = N}".
std::string withoutSecrets(std::string_view text);

}  // namespace host
