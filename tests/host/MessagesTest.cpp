// Errors in words, and the exit statuses that scripts rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Error.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "host/Messages.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const host::Account kAccount = {"Google", "user@example.org"};

qvr::ErrorPtr makeError(std::string_view domain, std::int64_t code) {
  return qvr::Error::errorWithDomain(domain, code);
}

qvr::ErrorPtr protocolError(std::int64_t code, const std::string& description) {
  return qvr::Error::errorWithDomain(
      QVROAuth2ErrorDomain, code,
      qvr::Error::UserInfo{{std::string(qvr::NSLocalizedDescriptionKey), description}});
}

std::string sentence(const qvr::ErrorPtr& error) {
  return host::failureForError(error, kAccount).sentence;
}

TEST(ExitStatus, IsAsTheAdviceOfTheErrorSays) {
  struct Case {
    std::string_view domain;
    std::vector<std::int64_t> codes;
    int status;
  };
  const Case cases[] = {
      {QVROAuth2ErrorDomain, {9, 16, 17, 18}, 4},
      {QVROAuth2ErrorDomain, {6, 7}, 5},
      {QVROAuth2ErrorDomain, {0, 1, 2, 3, 4, 5, 8, 10, 11, 12, 13, 14, 15}, 1},
      {QVROAuth2HTTPErrorDomain, {500, 502, 503, 504, 599, 429}, 5},
      {QVROAuth2HTTPErrorDomain, {204, 302, 404, 600}, 1},
      {qvr::NSURLErrorDomain, {-1, -1001, -1003, -1004, -1005, -1009}, 5},
      {qvr::NSURLErrorDomain, {-999, -1000, -1012, -1100, -1103, -1200, -1202}, 1},
      {qvr::NSCocoaErrorDomain, {3840}, 5},
      {qvr::NSCocoaErrorDomain, {4864, 4865, 4866}, 1},
      {qvr::NSOSStatusErrorDomain, {-25300}, 3},
      {qvr::NSOSStatusErrorDomain, {-25291, -25308}, 5},
      {qvr::NSOSStatusErrorDomain, {-34, -36, -50, -61, -108, -128, -25293, -25295, -26275}, 1},
      {"another domain", {9, -1}, 1},
  };
  for (const Case& each : cases) {
    for (const std::int64_t code : each.codes) {
      const auto error = makeError(each.domain, code);
      EXPECT_EQ(host::exitStatusForError(error), each.status) << each.domain << " " << code;
      EXPECT_EQ(host::failureForError(error, kAccount).status, each.status);
    }
  }
  EXPECT_EQ(host::exitStatusForError(nullptr), 1);
  EXPECT_EQ(host::failureForError(nullptr, kAccount).status, 1);
}

TEST(Sentence, NamesTheSignInLineWhenThatIsWhatHelps) {
  const std::string line = "`qvr-oauth2 sign-in Google user@example.org`";
  EXPECT_THAT(sentence(makeError(qvr::NSOSStatusErrorDomain, -25300)), HasSubstr(line));
  EXPECT_THAT(sentence(makeError(qvr::NSOSStatusErrorDomain, -26275)), HasSubstr(line));
  EXPECT_THAT(sentence(makeError(qvr::NSCocoaErrorDomain, 4864)), HasSubstr(line));
  for (const std::int64_t code : {9, 16, 17, 18}) {
    EXPECT_THAT(sentence(makeError(QVROAuth2ErrorDomain, code)), HasSubstr(line));
  }
}

TEST(Sentence, SaysWhatToDoForEachCauseOfItsOwn) {
  struct Case {
    std::string_view domain;
    std::int64_t code;
    const char* part;
  };
  const Case cases[] = {
      {qvr::NSOSStatusErrorDomain, qvr::errSecDiskFull, "make room"},
      {qvr::NSOSStatusErrorDomain, qvr::errSecAuthFailed, "chmod 600"},
      {qvr::NSOSStatusErrorDomain, qvr::errSecInteractionNotAllowed, "unlock it"},
      {qvr::NSOSStatusErrorDomain, qvr::errSecNotAvailable, "does not answer"},
      {qvr::NSOSStatusErrorDomain, -7, "status -7"},
      {qvr::NSURLErrorDomain, qvr::NSURLErrorCannotFindHost, "name could not be found"},
      {qvr::NSURLErrorDomain, qvr::NSURLErrorServerCertificateHasBadDate, "clock"},
      {qvr::NSURLErrorDomain, qvr::NSURLErrorServerCertificateUntrusted, "nothing was sent"},
      {qvr::NSURLErrorDomain, qvr::NSURLErrorUserCancelledAuthentication, "was cancelled"},
      {qvr::NSURLErrorDomain, -4242, "NSURLErrorDomain -4242"},
      {QVROAuth2ErrorDomain, QVROAuth2ErrorInvalidClient, "qvr-oauth2 config"},
      {QVROAuth2ErrorDomain, QVROAuth2ErrorAdminPolicyEnforced, "administrator"},
      {QVROAuth2ErrorDomain, QVROAuth2ErrorServerError, "Try again later"},
      {QVROAuth2ErrorDomain, QVROAuth2ErrorUnknown, "Trying again will not help"},
      {QVROAuth2HTTPErrorDomain, 429, "try again later"},
      {QVROAuth2HTTPErrorDomain, 404, "404 (not found): check the [endpoints]"},
      {qvr::NSCocoaErrorDomain, 3840, "log in on a page of its own"},
      {"another domain", 3, "another domain 3"},
  };
  for (const Case& each : cases) {
    EXPECT_THAT(sentence(makeError(each.domain, each.code)), HasSubstr(each.part));
  }
}

TEST(Sentence, QuotesWhatTheProviderSaidOnOneLine) {
  const auto error =
      protocolError(QVROAuth2ErrorInvalidGrant, "AADSTS700082: expired.\r\nTrace ID: 1\r\n");
  EXPECT_EQ(sentence(error),
            "Google refused (invalid_grant): AADSTS700082: expired.  Trace ID: 1. Sign in again: "
            "`qvr-oauth2 sign-in Google user@example.org`");
}

TEST(Sentence, CutsALongTextBetweenCharacters) {
  std::string text;
  for (int i = 0; i < 400; ++i)
    text += "\u00e9";
  const std::string cut = sentence(protocolError(QVROAuth2ErrorAccessDenied, "x" + text));
  EXPECT_LT(cut.size(), 500u);
  EXPECT_THAT(cut, HasSubstr("\u00e9. "));
  EXPECT_THAT(cut, Not(HasSubstr("\xc3.")));
}

TEST(Sentence, ShowsTheServersNameAndNothingElseOfAURL) {
  const auto url = qvr::URL::URLWithString("https://login.example:8443/path?code=secret");
  const auto error = qvr::Error::errorWithDomain(
      qvr::NSURLErrorDomain, qvr::NSURLErrorTimedOut,
      qvr::Error::UserInfo{{std::string(qvr::NSURLErrorFailingURLErrorKey), *url}});
  EXPECT_EQ(sentence(error),
            "The request to Google (login.example) got no answer in time: try again later.");
}

TEST(Sentence, ShowsNoBodyOfAnAnswer) {
  const std::string body = "the body";
  const auto error = qvr::Error::errorWithDomain(
      QVROAuth2HTTPErrorDomain, 500,
      qvr::Error::UserInfo{
          {std::string(qvr::NSLocalizedDescriptionKey), body},
          {std::string(QVROAuth2HTTPResponseDataKey), qvr::Data(body.begin(), body.end())}});
  EXPECT_EQ(sentence(error),
            "Google answered with HTTP status 500 (internal server error): try again later.");
}

TEST(ShellQuoting, LeavesPlainWordsAndQuotesTheRest) {
  EXPECT_EQ(host::shellQuoted("user@example.org"), "user@example.org");
  EXPECT_EQ(host::shellQuoted(""), "''");
  EXPECT_EQ(host::shellQuoted("two words"), "'two words'");
  EXPECT_EQ(host::shellQuoted("it's"), "'it'\\''s'");
  EXPECT_EQ(host::shellQuoted("$(reboot)`;"), "'$(reboot)`;'");
  EXPECT_EQ(host::signInCommand({"Microsoft", "a b"}), "`qvr-oauth2 sign-in Microsoft 'a b'`");
}

TEST(KeychainStatus, IsSaidInTheWordsOfTheKeychain) {
  struct Case {
    std::int32_t status;
    int exitStatus;
    const char* keyring;
    const char* files;
  };
  const Case cases[] = {
      {qvr::errSecNotAvailable, 5, "log in to the desktop or start its keyring", "try again later"},
      {qvr::errSecInteractionNotAllowed, 5, "unlock it on the desktop", "keychain is locked"},
      {qvr::errSecUserCanceled, 1, "desktop's keyring was not unlocked", "was not unlocked"},
      {qvr::errSecIO, 1, "look into it with its own program", "check the disk"},
      {qvr::errSecDiskFull, 1, "disk is full", "disk is full"},
      {qvr::errSecItemNotFound, 3, "Sign in first", "Sign in first"},
  };
  for (const Case& each : cases) {
    const auto keyring =
        host::failureForKeychainStatus(each.status, host::kSecretService, kAccount);
    const auto files = host::failureForKeychainStatus(each.status, host::kEncryptedFile, kAccount);
    EXPECT_THAT(keyring.sentence, HasSubstr(each.keyring));
    EXPECT_THAT(files.sentence, AllOf(HasSubstr(each.files), Not(HasSubstr("desktop"))));
    EXPECT_EQ(keyring.status, each.exitStatus);
    EXPECT_EQ(files.status, each.exitStatus);
  }
}

}  // namespace
