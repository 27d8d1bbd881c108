// The whole table of libcurl's results, the rows too that no test can bring about.
#include <gtest/gtest.h>

#include <cerrno>

#include "QVROAuth2Client/platform/Error.h"
#include "src/platform/URLErrors.h"
#include "src/ports/CurlSessionErrors.h"

namespace qvr {
namespace {

TEST(CurlSessionErrorsTest, MapsEveryResultToItsCode) {
  const struct {
    CurlFailure failure;
    std::int64_t code;
  } rows[] = {
      {{CURLE_URL_MALFORMAT}, NSURLErrorBadURL},
      {{CURLE_OPERATION_TIMEDOUT}, NSURLErrorTimedOut},
      {{CURLE_COULDNT_RESOLVE_HOST}, NSURLErrorCannotFindHost},
      {{CURLE_COULDNT_RESOLVE_PROXY}, NSURLErrorCannotFindHost},
      {{CURLE_COULDNT_CONNECT, ECONNREFUSED}, NSURLErrorCannotConnectToHost},
      {{CURLE_COULDNT_CONNECT, 0}, NSURLErrorCannotConnectToHost},
      {{CURLE_COULDNT_CONNECT, ETIMEDOUT}, NSURLErrorTimedOut},
      {{CURLE_COULDNT_CONNECT, ENETUNREACH}, NSURLErrorNotConnectedToInternet},
      {{CURLE_COULDNT_CONNECT, EHOSTUNREACH}, NSURLErrorNotConnectedToInternet},
      {{CURLE_COULDNT_CONNECT, ENETDOWN}, NSURLErrorNotConnectedToInternet},
      {{CURLE_GOT_NOTHING}, NSURLErrorNetworkConnectionLost},
      {{CURLE_PARTIAL_FILE}, NSURLErrorNetworkConnectionLost},
      {{CURLE_SEND_ERROR}, NSURLErrorNetworkConnectionLost},
      {{CURLE_RECV_ERROR}, NSURLErrorNetworkConnectionLost},
      {{CURLE_HTTP2_STREAM}, NSURLErrorNetworkConnectionLost},
      {{CURLE_RECV_ERROR, 0, 0, "tlsv13 alert certificate required"},
       NSURLErrorClientCertificateRequired},
      {{CURLE_SSL_CLIENTCERT}, NSURLErrorClientCertificateRequired},
      {{CURLE_UNSUPPORTED_PROTOCOL}, NSURLErrorCannotParseResponse},
      {{CURLE_WEIRD_SERVER_REPLY}, NSURLErrorCannotParseResponse},
      {{CURLE_HTTP2}, NSURLErrorCannotParseResponse},
      {{CURLE_BAD_CONTENT_ENCODING}, NSURLErrorCannotDecodeRawData},
      {{CURLE_SSL_CONNECT_ERROR, 0, 0, "wrong version number"}, NSURLErrorSecureConnectionFailed},
      {{CURLE_SSL_CONNECT_ERROR, 0, 0, "OpenSSL SSL_connect: Connection reset by peer in"},
       NSURLErrorNetworkConnectionLost},
      {{CURLE_SSL_CONNECT_ERROR, 0, 0, "OpenSSL SSL_connect: SSL_ERROR_SYSCALL in"},
       NSURLErrorNetworkConnectionLost},
      {{CURLE_SSL_CACERT_BADFILE}, NSURLErrorSecureConnectionFailed},
      {{CURLE_SSL_CIPHER}, NSURLErrorSecureConnectionFailed},
      {{CURLE_PEER_FAILED_VERIFICATION, 0, 10}, NSURLErrorServerCertificateHasBadDate},
      {{CURLE_PEER_FAILED_VERIFICATION, 0, 9}, NSURLErrorServerCertificateNotYetValid},
      {{CURLE_PEER_FAILED_VERIFICATION, 0, 18}, NSURLErrorServerCertificateUntrusted},
      {{CURLE_PEER_FAILED_VERIFICATION, 0, 0}, NSURLErrorServerCertificateUntrusted},
      {{CURLE_OUT_OF_MEMORY}, NSURLErrorUnknown},
      {{CURLE_FAILED_INIT}, NSURLErrorUnknown},
  };
  for (const auto& row : rows)
    EXPECT_EQ(URLErrorCode(row.failure), row.code) << row.failure.code << row.failure.detail;
}

TEST(URLErrorsTest, CarriesDescriptionAndFailingURL) {
  const URL url = URL::URLWithString("https://h/p?q=1").value();
  const ErrorPtr error = makeURLError(NSURLErrorTimedOut, url);
  EXPECT_TRUE(error->is("NSURLErrorDomain", -1001));
  const Error::UserInfo expected{{"NSLocalizedDescription", "The request timed out."},
                                 {"NSErrorFailingURLStringKey", "https://h/p?q=1"},
                                 {"NSErrorFailingURLKey", url}};
  EXPECT_EQ(*error->userInfo(), expected);
}

TEST(URLErrorsTest, CarriesADebugDescriptionWhenThereIsOne) {
  const URL url = URL::URLWithString("https://h/").value();
  const ErrorPtr error = makeURLError(NSURLErrorUnknown, url, "libcurl.so.4 is missing");
  EXPECT_EQ(error->localizedDescription(), "unknown error");
  ASSERT_NE(error->userInfoValue(NSDebugDescriptionErrorKey), nullptr);
  EXPECT_EQ(error->userInfoValue(NSDebugDescriptionErrorKey)->text(), "libcurl.so.4 is missing");
}

TEST(URLErrorsTest, DescribesEveryCodeInUse) {
  const struct {
    std::int64_t code;
    const char* text;
  } rows[] = {
      {-999, "cancelled"},
      {-1000, "bad URL"},
      {-1001, "The request timed out."},
      {-1002, "unsupported URL"},
      {-1003, "A server with the specified hostname could not be found."},
      {-1004, "Could not connect to the server."},
      {-1005, "The network connection was lost."},
      {-1009, "The Internet connection appears to be offline."},
      {-1015, "cannot decode raw data"},
      {-1017, "cannot parse response"},
      {-1103, "resource exceeds maximum size"},
      {-1200, "An SSL error has occurred and a secure connection to the server cannot be made."},
      {-1201, "The certificate for this server has expired."},
      {-1202, "The certificate for this server is invalid."},
      {-1204, "The certificate for this server is not yet valid."},
      {-1206, "The server requires a client certificate."},
      {-1, "unknown error"},
      {-4711, "unknown error"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(URLErrorDescription(row.code), row.text) << row.code;
}

}  // namespace
}  // namespace qvr
