// What libcurl's results mean in NSURLErrorDomain.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string_view>

namespace qvr {

struct CurlFailure {
  CURLcode code;
  long systemError = 0;          // errno of the last connection that failed
  long certificateStatus = 0;    // why the server's certificate was refused: an X509_V_ERR number
  std::string_view detail = {};  // libcurl's sentence, which alone tells some TLS failures apart
};

// The code of NSURLErrorDomain for a transfer of an http or https URL that failed.
std::int64_t URLErrorCode(const CurlFailure& failure);

}  // namespace qvr
