// The error value: every failure that the library reports is one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Value.h"

namespace qvr {
inline namespace v1 {

// Domains of errors that come from the platform's ports.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

// Keys of userInfo.
inline constexpr std::string_view NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view NSDebugDescriptionErrorKey = "NSDebugDescription";
inline constexpr std::string_view NSURLErrorFailingURLErrorKey = "NSErrorFailingURLKey";
inline constexpr std::string_view NSURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";
inline constexpr std::string_view NSJSONSerializationErrorIndexKey =
    "NSJSONSerializationErrorIndex";

// Codes of NSURLErrorDomain.
inline constexpr std::int64_t NSURLErrorUnknown = -1;
inline constexpr std::int64_t NSURLErrorCancelled = -999;
inline constexpr std::int64_t NSURLErrorBadURL = -1000;
inline constexpr std::int64_t NSURLErrorTimedOut = -1001;
inline constexpr std::int64_t NSURLErrorUnsupportedURL = -1002;
inline constexpr std::int64_t NSURLErrorCannotFindHost = -1003;
inline constexpr std::int64_t NSURLErrorCannotConnectToHost = -1004;
inline constexpr std::int64_t NSURLErrorNetworkConnectionLost = -1005;
inline constexpr std::int64_t NSURLErrorNotConnectedToInternet = -1009;
inline constexpr std::int64_t NSURLErrorUserCancelledAuthentication = -1012;
inline constexpr std::int64_t NSURLErrorCannotDecodeRawData = -1015;
inline constexpr std::int64_t NSURLErrorCannotParseResponse = -1017;
inline constexpr std::int64_t NSURLErrorFileDoesNotExist = -1100;
inline constexpr std::int64_t NSURLErrorDataLengthExceedsMaximum = -1103;
inline constexpr std::int64_t NSURLErrorSecureConnectionFailed = -1200;
inline constexpr std::int64_t NSURLErrorServerCertificateHasBadDate = -1201;
inline constexpr std::int64_t NSURLErrorServerCertificateUntrusted = -1202;
inline constexpr std::int64_t NSURLErrorServerCertificateNotYetValid = -1204;
inline constexpr std::int64_t NSURLErrorClientCertificateRequired = -1206;

// Codes of NSCocoaErrorDomain.
inline constexpr std::int64_t NSPropertyListReadCorruptError = 3840;  // an unreadable JSON body
inline constexpr std::int64_t NSCoderReadCorruptError = 4864;
inline constexpr std::int64_t NSCoderValueNotFoundError = 4865;
inline constexpr std::int64_t NSCoderInvalidValueError = 4866;

class Error;

// How errors are passed: shared, immutable, null when there is none.
using ErrorPtr = Ref<const Error>;

// A domain, a code whose meaning the domain gives, and userInfo, which may be absent. Immutable.
class QVR_EXPORT Error final : public Object {
 public:
  using UserInfo = Value::Object;

  static ErrorPtr errorWithDomain(std::string_view domain, std::int64_t code,
                                  std::optional<UserInfo> userInfo = std::nullopt);

  const std::string& domain() const noexcept { return domain_; }
  std::int64_t code() const noexcept { return code_; }

  // Null when the error has none (which is not the same as an empty one).
  const UserInfo* userInfo() const noexcept { return userInfo_ ? &*userInfo_ : nullptr; }

  // The value under a key of userInfo, or null.
  const Value* userInfoValue(std::string_view key) const;

  // The text under NSLocalizedDescriptionKey; absent when there is none or it is no string.
  Text localizedDescription() const;

  bool is(std::string_view domain, std::int64_t code) const {
    return domain_ == domain && code_ == code;
  }

  // `Error Domain=D Code=N "T" UserInfo={key=value, ...}`: one line, for logs. Byte buffers print
  // as their length and URLs without their query.
  std::string description() const;

 private:
  Error(std::string_view domain, std::int64_t code, std::optional<UserInfo> userInfo);

  std::string domain_;
  std::int64_t code_;
  std::optional<UserInfo> userInfo_;
};

}  // namespace v1
}  // namespace qvr
