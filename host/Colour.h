// A little colour for who reads on a terminal. Nobody else gets any: a file or a pipe holds the
// same text without it, as does a terminal of whoever set NO_COLOR to something (no-color.org).
//
// Thread rule: any thread.
#pragma once

#include <string>
#include <string_view>

namespace host {

enum class Colour { kGreen, kYellow, kRed };

// Whether the descriptor is a terminal on which one can draw: not one that calls itself dumb
// ($TERM), such as an editor's, which shows control characters as they are.
bool canDraw(int descriptor);

// The text in the colour, where the descriptor shows colours to somebody who wants them.
std::string coloured(Colour colour, std::string_view text, int descriptor);

}  // namespace host
