#include "src/platform/URLErrors.h"

#include <string>

namespace qvr {

std::string_view URLErrorDescription(std::int64_t code) {
  switch (code) {
    case NSURLErrorCancelled:
      return "cancelled";
    case NSURLErrorBadURL:
      return "bad URL";
    case NSURLErrorTimedOut:
      return "The request timed out.";
    case NSURLErrorUnsupportedURL:
      return "unsupported URL";
    case NSURLErrorCannotFindHost:
      return "A server with the specified hostname could not be found.";
    case NSURLErrorCannotConnectToHost:
      return "Could not connect to the server.";
    case NSURLErrorNetworkConnectionLost:
      return "The network connection was lost.";
    case NSURLErrorNotConnectedToInternet:
      return "The Internet connection appears to be offline.";
    case NSURLErrorCannotParseResponse:
      return "cannot parse response";
    case NSURLErrorCannotDecodeRawData:
      return "cannot decode raw data";
    case NSURLErrorDataLengthExceedsMaximum:
      return "resource exceeds maximum size";
    case NSURLErrorSecureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case NSURLErrorServerCertificateHasBadDate:
      return "The certificate for this server has expired.";
    case NSURLErrorServerCertificateUntrusted:
      return "The certificate for this server is invalid.";
    case NSURLErrorServerCertificateNotYetValid:
      return "The certificate for this server is not yet valid.";
    case NSURLErrorClientCertificateRequired:
      return "The server requires a client certificate.";
    default:
      return "unknown error";
  }
}

ErrorPtr makeURLError(std::int64_t code, const URL& failingURL, TextView debugDescription) {
  Error::UserInfo userInfo{
      {std::string(NSLocalizedDescriptionKey), URLErrorDescription(code)},
      {std::string(NSURLErrorFailingURLStringErrorKey), failingURL.absoluteString()},
      {std::string(NSURLErrorFailingURLErrorKey), failingURL},
  };
  if (debugDescription) {
    userInfo.emplace_back(NSDebugDescriptionErrorKey, debugDescription.view());
  }
  return Error::errorWithDomain(NSURLErrorDomain, code, std::move(userInfo));
}

}  // namespace qvr
