// libcurl, loaded when the first request is sent: a process that only reads a stored token must not
// pay for it. Once loaded it stays.
#pragma once

#include <curl/curl.h>

#include <string>

namespace qvr {

// The functions in use, as the library itself declares them. A plain table, so that a test can make
// any of them fail.
struct CurlLibrary {
  decltype(&::curl_easy_init) easyInit = nullptr;
  decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
  decltype(&::curl_easy_setopt) easySetopt = nullptr;
  decltype(&::curl_easy_getinfo) easyGetinfo = nullptr;
  decltype(&::curl_easy_strerror) easyStrerror = nullptr;
  decltype(&::curl_multi_init) multiInit = nullptr;
  decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
  decltype(&::curl_multi_setopt) multiSetopt = nullptr;
  decltype(&::curl_multi_add_handle) multiAddHandle = nullptr;
  decltype(&::curl_multi_remove_handle) multiRemoveHandle = nullptr;
  decltype(&::curl_multi_perform) multiPerform = nullptr;
  decltype(&::curl_multi_poll) multiPoll = nullptr;
  decltype(&::curl_multi_wakeup) multiWakeup = nullptr;
  decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
  decltype(&::curl_slist_append) slistAppend = nullptr;
  decltype(&::curl_slist_free_all) slistFreeAll = nullptr;
  decltype(&::curl_version_info) versionInfo = nullptr;

  // Why the library cannot be used; empty when it can.
  std::string problem;

  // Loads and initialises the named library.
  static CurlLibrary open(const char* fileName);

  // libcurl.so.4, opened by the first call.
  static const CurlLibrary& shared();
};

}  // namespace qvr
