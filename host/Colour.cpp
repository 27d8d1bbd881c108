#include "host/Colour.h"

#include <unistd.h>

#include <cstdlib>

namespace host {
namespace {

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// As "select graphic rendition" of ECMA-48 takes it.
std::string_view codeOf(Colour colour) {
  switch (colour) {
    case Colour::kGreen:
      return "32";
    case Colour::kYellow:
      return "33";
    case Colour::kRed:
      break;
  }
  return "31";
}

}  // namespace

bool canDraw(int descriptor) {
  return isatty(descriptor) == 1 && variable("TERM") != "dumb";
}

std::string coloured(Colour colour, std::string_view text, int descriptor) {
  if (text.empty() || !canDraw(descriptor) || !variable("NO_COLOR").empty())
    return std::string(text);
  return "\x1b[" + std::string(codeOf(colour)) + "m" + std::string(text) + "\x1b[0m";
}

}  // namespace host
