// URLs: whatever the text, the parts of what parses lie in it or are decoded from it, and the text
// parses again to an equal URL.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "QVROAuth2Client/platform/URL.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

// A part that is reported as written.
void checkWritten(const qvr::URL& url, const qvr::Text& part) {
  check(!part || url.absoluteString().find(*part) != std::string::npos);
}

// A part that is reported percent-decoded.
void checkDecoded(const qvr::URL& url, const qvr::Text& part) {
  check(!part || part->size() <= url.absoluteString().size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto url = qvr::URL::URLWithString(text);
  if (!url) return 0;
  check(url->absoluteString() == text);
  checkWritten(*url, url->scheme());
  checkWritten(*url, url->query());
  checkDecoded(*url, url->host());
  checkDecoded(*url, url->path());
  check(qvr::URL::URLWithString(url->absoluteString()) == url);
  return 0;
}
