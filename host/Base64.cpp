#include "host/Base64.h"

#include <algorithm>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"

namespace host {

// The two alphabets differ in two characters.
std::string base64(std::string_view bytes) {
  std::string text = qvr_base64URLEncodedString(qvr::Data(bytes.begin(), bytes.end()));
  std::replace(text.begin(), text.end(), '-', '+');
  std::replace(text.begin(), text.end(), '_', '/');
  return text;
}

}  // namespace host
