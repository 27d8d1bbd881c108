#include "src/ports/CurlSessionErrors.h"

#include <cerrno>

#include "QVROAuth2Client/platform/Error.h"

namespace qvr {
namespace {

// From OpenSSL's x509_vfy.h, whose numbers libcurl hands on.
constexpr long kCertificateNotYetValid = 9;
constexpr long kCertificateHasExpired = 10;

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::int64_t connectErrorCode(long systemError) {
  switch (systemError) {
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ENETDOWN:
      return NSURLErrorNotConnectedToInternet;
    case ETIMEDOUT:
      return NSURLErrorTimedOut;
    default:
      return NSURLErrorCannotConnectToHost;
  }
}

std::int64_t certificateErrorCode(long status) {
  switch (status) {
    case kCertificateHasExpired:
      return NSURLErrorServerCertificateHasBadDate;
    case kCertificateNotYetValid:
      return NSURLErrorServerCertificateNotYetValid;
    default:
      return NSURLErrorServerCertificateUntrusted;
  }
}

// A peer that goes away during the handshake is a lost connection, worth another try; a peer that
// answers and does not agree is not.
std::int64_t handshakeErrorCode(std::string_view detail) {
  const bool isLost = contains(detail, "SSL_ERROR_SYSCALL") || contains(detail, "unexpected eof") ||
                      contains(detail, "Connection reset");
  return isLost ? NSURLErrorNetworkConnectionLost : NSURLErrorSecureConnectionFailed;
}

// In TLS 1.3 the server's refusal of a client without a certificate arrives after the handshake, as
// an alert where the reply was expected (RFC 8446 section 4.4.2.4).
std::int64_t lostErrorCode(std::string_view detail) {
  return contains(detail, "certificate required") ? NSURLErrorClientCertificateRequired
                                                  : NSURLErrorNetworkConnectionLost;
}

}  // namespace

std::int64_t URLErrorCode(const CurlFailure& failure) {
  switch (failure.code) {
    case CURLE_URL_MALFORMAT:
      return NSURLErrorBadURL;
    case CURLE_OPERATION_TIMEDOUT:
      return NSURLErrorTimedOut;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return NSURLErrorCannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return connectErrorCode(failure.systemError);
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2_STREAM:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return lostErrorCode(failure.detail);
    case CURLE_UNSUPPORTED_PROTOCOL:  // the reply's, since the URL's was known
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
      return NSURLErrorCannotParseResponse;
    case CURLE_BAD_CONTENT_ENCODING:
      return NSURLErrorCannotDecodeRawData;
    case CURLE_SSL_CONNECT_ERROR:
      return handshakeErrorCode(failure.detail);
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CIPHER:
      return NSURLErrorSecureConnectionFailed;
    case CURLE_PEER_FAILED_VERIFICATION:
      return certificateErrorCode(failure.certificateStatus);
    case CURLE_SSL_CLIENTCERT:
      return NSURLErrorClientCertificateRequired;
    default:
      return NSURLErrorUnknown;
  }
}

}  // namespace qvr
