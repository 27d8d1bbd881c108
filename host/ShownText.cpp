#include "host/ShownText.h"

#include <algorithm>

#include "host/Console.h"
#include "host/Secrets.h"

namespace host {

std::string asUTF8(std::string_view text) {
  std::string result(text);
  if (isUTF8(text)) return result;
  std::replace_if(
      result.begin(), result.end(), [](unsigned char c) { return c >= 0x80; }, '?');
  return result;
}

std::string shown(std::string_view text) {
  return asUTF8(printable(withoutSecrets(text)));
}

}  // namespace host
