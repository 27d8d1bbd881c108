// QVROAuth2Client: OAuth 2.0 for desktop mail applications. The one header that a host needs.
//
// Conventions, stated once:
//   - A member function is named by the first keyword of its selector, which its comment gives in
//     full; exceptions, log lines and errors print the selector.
//   - Text arguments are qvr::TextView and may be absent only where the comment says so. What the
//     library keeps it copies. Returned qvr::Ref objects are the caller's.
//   - An error out-parameter comes last, may be null, and is written on failure only.
//   - A completion handler is called once and then released.
//   - Dates are seconds since 2001-01-01 00:00:00 UTC; durations are seconds; sizes are bytes.
//   - Programming errors raise qvr::Exception; everything else is a qvr::Error.
#pragma once

#include "QVROAuth2Client/QVRGoogleOAuth2PublicClient.h"
#include "QVROAuth2Client/QVRMicrosoftOAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2AccessTokenResponse.h"
#include "QVROAuth2Client/QVROAuth2AuthorizationResponse.h"
#include "QVROAuth2Client/QVROAuth2Base64URL.h"
#include "QVROAuth2Client/QVROAuth2Error.h"
#include "QVROAuth2Client/QVROAuth2Host.h"
#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "QVROAuth2Client/QVROAuth2Token.h"
#include "QVROAuth2Client/QVROAuth2TokenManager.h"
#include "QVROAuth2Client/platform/Desktop.h"
#include "QVROAuth2Client/platform/Exception.h"
#include "QVROAuth2Client/platform/JSON.h"
#include "QVROAuth2Client/platform/Ports.h"

#define QVROAUTH2CLIENT_VERSION "1.0.0"

inline constexpr double QVROAuth2ClientVersionNumber = 1.0;
inline constexpr std::string_view QVROAuth2ClientVersionString =
    "@(#)PROGRAM:QVROAuth2Client  PROJECT:QVROAuth2Client-" QVROAUTH2CLIENT_VERSION "\n";
