#include "src/ports/CurlLibrary.h"

#include <cstdint>

#include "src/ports/SharedLibrary.h"

namespace qvr {
namespace {

// A request may still be running on the session's thread when the process exits: OpenSSL's own
// clean-up at exit would free what that thread is using, so it is switched off before the first
// use.
void keepOpenSSLUntilProcessEnds(void* library) {
  constexpr std::uint64_t kNoAtExit = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
  auto* const initialise =
      librarySymbol<int(std::uint64_t, const void*)>(library, "OPENSSL_init_crypto");
  if (initialise != nullptr) initialise(kNoAtExit, nullptr);
}

std::string bindFunctions(CurlLibrary& curl, void* library) {
  LibraryBinder binder(library);
  binder.bind(curl.easyInit, "curl_easy_init");
  binder.bind(curl.easyCleanup, "curl_easy_cleanup");
  binder.bind(curl.easySetopt, "curl_easy_setopt");
  binder.bind(curl.easyGetinfo, "curl_easy_getinfo");
  binder.bind(curl.easyStrerror, "curl_easy_strerror");
  binder.bind(curl.multiInit, "curl_multi_init");
  binder.bind(curl.multiCleanup, "curl_multi_cleanup");
  binder.bind(curl.multiSetopt, "curl_multi_setopt");
  binder.bind(curl.multiAddHandle, "curl_multi_add_handle");
  binder.bind(curl.multiRemoveHandle, "curl_multi_remove_handle");
  binder.bind(curl.multiPerform, "curl_multi_perform");
  binder.bind(curl.multiPoll, "curl_multi_poll");
  binder.bind(curl.multiWakeup, "curl_multi_wakeup");
  binder.bind(curl.multiInfoRead, "curl_multi_info_read");
  binder.bind(curl.slistAppend, "curl_slist_append");
  binder.bind(curl.slistFreeAll, "curl_slist_free_all");
  binder.bind(curl.versionInfo, "curl_version_info");
  return binder.missing();
}

// Empty when all went well.
std::string load(CurlLibrary& curl, const char* fileName) {
  std::string problem;
  void* const library = loadLibrary(fileName, &problem);
  if (library == nullptr) return problem;
  const std::string missing = bindFunctions(curl, library);
  if (!missing.empty()) return std::string(fileName) + " has no function " + missing;
  keepOpenSSLUntilProcessEnds(library);
  auto* const initialise = librarySymbol<decltype(::curl_global_init)>(library, "curl_global_init");
  if (initialise == nullptr || initialise(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    return std::string(fileName) + " cannot be initialised";
  }
  return {};
}

}  // namespace

CurlLibrary CurlLibrary::open(const char* fileName) {
  CurlLibrary curl;
  curl.problem = load(curl, fileName);
  return curl;
}

const CurlLibrary& CurlLibrary::shared() {
  // Never destroyed: a session may still be at work while the process exits.
  static const CurlLibrary& library = *new CurlLibrary(open("libcurl.so.4"));
  return library;
}

}  // namespace qvr
