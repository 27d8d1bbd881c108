// The library's error vocabulary: domains, keys and codes, and what a host should do about an
// error.
//
// Thread rule: every function here is reentrant and may be called from any thread.
//
// Errors that hosts meet, by domain:
//   QVROAuth2ErrorDomain      an OAuth 2.0 protocol error; the code is a QVROAuth2ErrorCode
//   QVROAuth2HTTPErrorDomain  a status of the token or revocation endpoint; the code is the status
//   NSURLErrorDomain          transport errors; -1100 a redirect that is not ours; -1 no browser;
//                             -1012 the authorization was cancelled
//   NSOSStatusErrorDomain     a keychain status (see KeychainItems.h) or a failed random source
//   NSCocoaErrorDomain        3840 an unreadable JSON body; 4864, 4865, 4866 the token archive
#pragma once

#include <cstdint>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"

inline constexpr std::string_view QVROAuth2ErrorDomain = "QVROAuth2ErrorDomain";
inline constexpr std::string_view QVROAuth2HTTPErrorDomain = "QVROAuth2HTTPErrorDomain";

// userInfo key of the server's "error_uri" value.
inline constexpr std::string_view QVROAuth2ErrorURIKey = "QVROAuth2ErrorURI";

// userInfo key of the raw body (Data) of an HTTP error of the token endpoint. It may hold whatever
// the server sent: do not print it.
inline constexpr std::string_view QVROAuth2HTTPResponseDataKey = "QVROAuth2HTTPResponseData";

// Codes of QVROAuth2ErrorDomain. The values are part of the interface.
enum QVROAuth2ErrorCode : std::int64_t {
  // No "error" string, an unknown one, or a token response that lacks a required parameter.
  QVROAuth2ErrorUnknown = 0,
  // RFC 6749 section 4.1.2.1
  QVROAuth2ErrorInvalidRequest = 1,
  QVROAuth2ErrorUnauthorizedClient = 2,
  QVROAuth2ErrorAccessDenied = 3,
  QVROAuth2ErrorUnsupportedResponseType = 4,
  QVROAuth2ErrorInvalidScope = 5,
  QVROAuth2ErrorServerError = 6,
  QVROAuth2ErrorTemporarilyUnavailable = 7,
  // RFC 6749 section 5.2
  QVROAuth2ErrorInvalidClient = 8,
  QVROAuth2ErrorInvalidGrant = 9,
  QVROAuth2ErrorUnsupportedGrantType = 10,
  // Extensions of the providers
  QVROAuth2ErrorAdminPolicyEnforced = 11,
  QVROAuth2ErrorDisallowedUserAgent = 12,
  QVROAuth2ErrorOrgInternal = 13,
  QVROAuth2ErrorRedirectURIMismatch = 14,
  QVROAuth2ErrorInvalidResource = 15,
  // OpenID Connect Core 1.0 section 3.1.2.6
  QVROAuth2ErrorLoginRequired = 16,
  QVROAuth2ErrorInteractionRequired = 17,
  QVROAuth2ErrorConsentRequired = 18,
};

// QVROAuth2ErrorCodeFromString
// The code of a wire string such as "invalid_grant" (case matters). Absent and empty text yield 0;
// so does an unknown string, which is logged.
QVR_EXPORT QVROAuth2ErrorCode QVROAuth2ErrorCodeFromString(qvr::TextView string);

// QVROAuth2ErrorStringFromCode
// The wire string of codes 1 to 18 (static storage); absent for every other value, 0 included.
QVR_EXPORT qvr::TextView QVROAuth2ErrorStringFromCode(QVROAuth2ErrorCode code);

// QVROAuth2ErrorFromJSONData
// The protocol error that a JSON error body (RFC 6749 section 5.2) describes: "error_description"
// under NSLocalizedDescriptionKey and "error_uri" under QVROAuth2ErrorURIKey, each when the member
// is there (a JSON null counts as there). A body that is not JSON yields the reader's own error
// (NSCocoaErrorDomain 3840). An "error" that is no string, and a body that is no object, yield code
// 0. Never null.
QVR_EXPORT qvr::ErrorPtr QVROAuth2ErrorFromJSONData(const qvr::Data& data);

// QVROAuth2ErrorFromParameters
// The protocol error that the parameters "error", "error_description" and "error_uri" describe,
// from a JSON body or a redirect; null pointers stand for absent parameters. userInfo is absent
// when neither of the last two is there. Never null.
QVR_EXPORT qvr::ErrorPtr QVROAuth2ErrorFromParameters(const qvr::Value* error,
                                                      const qvr::Value* errorDescription,
                                                      const qvr::Value* errorURI);

// What a host should do about an error.
enum class QVROAuth2Advice {
  kTryAgainLater,  // transient: the network, the server, or a keychain that is away or locked
  kSignInAgain,    // the grant is gone: run the interactive authorization again
  kNothingStored,  // no token is stored for this account: sign in first
  kLasting,        // trying again changes nothing: configuration, policy, damage, or cancelled
};

// QVROAuth2AdviceForError
// Sign in again: protocol codes 9, 16, 17 and 18. Nothing stored: keychain status -25300. Try again
// later: NSURLErrorDomain -1, -1001, -1003, -1004, -1005 and -1009; HTTP 5xx and 429; protocol
// codes 6 and 7; an unreadable body (3840, as a captive portal sends); keychain statuses -25291 and
// -25308. Lasting: everything else, and a null error.
QVR_EXPORT QVROAuth2Advice QVROAuth2AdviceForError(const qvr::ErrorPtr& error);
