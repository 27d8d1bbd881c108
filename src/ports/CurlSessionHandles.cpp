#include "src/ports/CurlSessionHandles.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace qvr {
namespace {

// As many as one host gets connections.
constexpr std::size_t kMaximumKept = 6;

// The bundle that libcurl was built for, or that of another distribution. Empty leaves the choice
// to libcurl.
std::string systemCertificateFile(const CurlLibrary& curl) {
  const curl_version_info_data* const version = curl.versionInfo(CURLVERSION_NOW);
  const bool knowsFile = version->age >= CURLVERSION_SEVENTH && version->cainfo != nullptr;
  const char* const candidates[] = {
      knowsFile ? version->cainfo : "", "/etc/ssl/certs/ca-certificates.crt",
      "/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"};
  const auto* const found =
      std::find_if(std::begin(candidates), std::end(candidates),
                   [](const char* path) { return ::access(path, R_OK) == 0; });
  return found == std::end(candidates) ? std::string() : *found;
}

// Sets options until libcurl refuses one.
class Options {
 public:
  Options(const CurlLibrary& curl, CURL* handle) : curl_(curl), handle_(handle) {}

  template <class T>
  void set(CURLoption option, T value) {
    if (result_ == CURLE_OK) result_ = curl_.easySetopt(handle_, option, value);
  }

  // For options that an older library may lack and that change no outcome.
  template <class T>
  void setIfKnown(CURLoption option, T value) {
    curl_.easySetopt(handle_, option, value);
  }

  CURLcode result() const { return result_; }

 private:
  const CurlLibrary& curl_;
  CURL* const handle_;
  CURLcode result_ = CURLE_OK;
};

void setTransport(Options& options, bool usesHTTP2) {
  options.set(CURLOPT_NOSIGNAL, 1L);
  options.setIfKnown(CURLOPT_QUICK_EXIT, 1L);  // a hanging name look-up must not hold up the thread
  options.set(CURLOPT_NOPROGRESS, 0L);
  options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  options.set(CURLOPT_PATH_AS_IS, 1L);
  options.set(CURLOPT_HTTP_VERSION,
              usesHTTP2 ? long{CURL_HTTP_VERSION_2TLS} : long{CURL_HTTP_VERSION_1_1});
  options.set(CURLOPT_ACCEPT_ENCODING, "");  // what libcurl can decode
}

void setSecurity(Options& options, const std::string& certificateAuthorityFile) {
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_FOLLOWLOCATION, 0L);  // a token request must not travel on
  options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  options.set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (certificateAuthorityFile.empty()) return;
  // A folder of certificates would keep libcurl from caching the parsed store: 20 ms a connection.
  options.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  options.set(CURLOPT_CAINFO, certificateAuthorityFile.c_str());
}

}  // namespace

CurlSessionHandles::CurlSessionHandles(const CurlLibrary& curl, const URLSessionOptions& options)
    : curl_(curl),
      usesHTTP2_(options.usesHTTP2),
      certificateAuthorityFile_(options.certificateAuthorityFile.empty()
                                    ? systemCertificateFile(curl)
                                    : options.certificateAuthorityFile) {}

CurlSessionHandles::~CurlSessionHandles() {
  for (CURL* const handle : kept_)
    curl_.easyCleanup(handle);
}

CURL* CurlSessionHandles::take(CURLcode& result) {
  if (kept_.empty()) return make(result);
  CURL* const handle = kept_.back();
  kept_.pop_back();
  return handle;
}

CURL* CurlSessionHandles::make(CURLcode& result) const {
  CURL* const handle = curl_.easyInit();
  if (handle == nullptr) {
    result = CURLE_FAILED_INIT;
    return nullptr;
  }
  Options options(curl_, handle);
  setTransport(options, usesHTTP2_);
  setSecurity(options, certificateAuthorityFile_);
  result = options.result();
  if (result == CURLE_OK) return handle;
  curl_.easyCleanup(handle);
  return nullptr;
}

void CurlSessionHandles::giveBack(CURL* handle) {
  if (kept_.size() < kMaximumKept) {
    kept_.push_back(handle);
  } else {
    curl_.easyCleanup(handle);
  }
}

}  // namespace qvr
