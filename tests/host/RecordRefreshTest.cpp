// One refresh for all processes: what is read again, what is sent, and what becomes of a refusal
// that another process's refresh explains.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/AccountSubject.h"
#include "host/Descriptor.h"
#include "host/HashedName.h"
#include "host/IdentityToken.h"
#include "host/Record.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* kAnswer =
    R"({"access_token":"new-access","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"new-refresh"})";
constexpr const char* kRefusal = R"({"error":"invalid_grant","error_description":"Revoked"})";

class RecordRefreshTest : public CommandTest {
 protected:
  void storeDue() { store(google, record("old-access", "old-refresh", 3600, 3600)); }

  // What another process would do at the moment of a keychain call: the record's bytes in the
  // keychain are exchanged.
  void replaceItemBy(const qvr::Ref<QVROAuth2Token>& other) {
    const auto before = item(google);
    store(google, other);
    others = item(google);
    putItem(google, std::string(before->begin(), before->end()));
  }

  void putOthers() { putItem(google, std::string(others->begin(), others->end())); }

  void putOthersWhenTheRecordIsReadAgain() {
    keychain->onCall([this](const support::FakeKeychain::Call& call) {
      if (call.operation == "copyMatching" && call.wantsData && ++reads == 2) putOthers();
    });
  }

  std::string lockPath() const {
    return folder.file("qvr-oauth2/" + host::hashedName(std::string("Google\n") + kUser) + ".lock");
  }

  qvr::Ref<QVROAuth2Token> stored() const {
    qvr::ErrorPtr error;
    return host::readRecord(google, &error);
  }

  std::optional<qvr::Data> others;
  int reads = 0;
};

TEST_F(RecordRefreshTest, AFreshTokenTakesNoLockAndNeedsNoRuntimeFolder) {
  const ScopedVariable nowhere("XDG_RUNTIME_DIR", "/proc/no-such-folder");
  install();
  store(google, record("access", "refresh", 3600));
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kDone) << printed.error;
  EXPECT_EQ(printed.output, "access\n");
}

TEST_F(RecordRefreshTest, ADueTokenLeavesOneLockFileAndNoLock) {
  install();
  for (int i = 0; i < 2; ++i) {
    storeDue();
    session->answerWith({200, kAnswer});
    EXPECT_EQ(runToken({google}).status, host::kDone);
  }
  const host::Descriptor file(open(lockPath().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(file);
  EXPECT_EQ(flock(file.number(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(RecordRefreshTest, WhatAnotherProcessStoredWhileTheLockWasWaitedForIsServed) {
  install();
  storeDue();
  replaceItemBy(record("others-access", "others-refresh", 3600));
  putOthersWhenTheRecordIsReadAgain();
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kDone) << printed.error;
  EXPECT_EQ(printed.output, "others-access\n");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, AForcedRefreshIsContentWithWhatAnotherProcessHasJustObtained) {
  install();
  store(google, record("access", "refresh", 3600));
  replaceItemBy(record("others-access", "others-refresh", 3600));
  putOthersWhenTheRecordIsReadAgain();
  EXPECT_EQ(runToken({.account = google, .forceRefresh = true}).output, "others-access\n");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, ATokenOfAShortLifeThatAnotherProcessHasJustObtainedIsServed) {
  install();
  storeDue();
  replaceItemBy(record("others-access", "others-refresh", 30));
  putOthersWhenTheRecordIsReadAgain();
  EXPECT_EQ(runToken({google}).output, "others-access\n");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, AnAccountThatWasSignedOutMeanwhileIsNotRefreshed) {
  install();
  storeDue();
  keychain->failWith([&](const support::FakeKeychain::Call& call) {
    const bool isSecondRead = call.operation == "copyMatching" && call.wantsData && ++reads == 2;
    return isSecondRead ? qvr::errSecItemNotFound : 0;
  });
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kNothingStored);
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, ARefusalIsNoneWhenAnotherProcessHasRotatedTheToken) {
  install();
  storeDue();
  replaceItemBy(record("others-access", "others-refresh", 3600));
  session->onRequest([this] { putOthers(); });
  session->answerWith({400, kRefusal});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kDone) << printed.error;
  EXPECT_EQ(printed.output, "others-access\n");
  EXPECT_EQ(printed.error, "");
  EXPECT_THAT(session->requests(), SizeIs(1));
}

TEST_F(RecordRefreshTest, ARotatedTokenThatIsDueItselfIsRefreshedInItsTurn) {
  install();
  storeDue();
  replaceItemBy(record("others-access", "others-refresh", 3600, 3600));
  session->onRequest([this] {
    if (session->requests().size() == 1) putOthers();
  });
  session->answerWith({400, kRefusal});
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
  ASSERT_THAT(session->requests(), SizeIs(2));
  EXPECT_THAT(session->requests()[1], HasSubstr("refresh_token=others-refresh"));
  EXPECT_EQ(stored()->refreshToken(), "new-refresh");
}

TEST_F(RecordRefreshTest, ARefusalIsOneWhenTheStoredTokenIsStillTheSame) {
  install();
  storeDue();
  const auto before = item(google);
  session->answerWith({400, kRefusal});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kSignInNeeded);
  EXPECT_THAT(printed.error, AllOf(HasSubstr("Revoked"),
                                   HasSubstr("`qvr-oauth2 sign-in Google user@example.org`")));
  EXPECT_THAT(session->requests(), SizeIs(1));
  EXPECT_EQ(item(google), before);
}

TEST_F(RecordRefreshTest, RefusalsThatGoOnEndAfterTheSecondRefresh) {
  install();
  std::vector<qvr::Data> items;
  for (const char* const name : {"first", "second", "third"}) {
    store(google, record("access", name, 3600, 3600));
    items.push_back(item(google).value());
  }
  storeDue();
  session->onRequest([&] {
    const qvr::Data& next = items.at(session->requests().size() - 1);
    putItem(google, std::string(next.begin(), next.end()));
  });
  for (std::size_t i = 0; i < items.size(); ++i)
    session->answerWith({400, kRefusal});
  EXPECT_EQ(runToken({google}).status, host::kSignInNeeded);
  EXPECT_THAT(session->requests(), SizeIs(2));
}

TEST_F(RecordRefreshTest, MinValidRefreshesEarlierThanTheLibrarysMinute) {
  install();
  store(google, record("access", "refresh", 3600, 3000));
  EXPECT_EQ(runToken({.account = google, .minimumSeconds = 599}).output, "access\n");
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({.account = google, .minimumSeconds = 600}).output, "new-access\n");
}

TEST_F(RecordRefreshTest, MinValidBeyondTheLifetimeOfTokensRefreshesOnceAndServes) {
  install();
  storeDue();
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({.account = google, .minimumSeconds = 7200}).output, "new-access\n");
  EXPECT_THAT(session->requests(), SizeIs(1));
}

TEST_F(RecordRefreshTest, MinValidNeedsARefreshTokenAndALifetime) {
  install();
  store(google, record("access", nullptr, 3600, 3000));
  EXPECT_EQ(runToken({.account = google, .minimumSeconds = 1000}).output, "access\n");
  store(google, record("access", "refresh", std::nullopt, 3000));
  EXPECT_EQ(runToken({.account = google, .minimumSeconds = 1000}).output, "access\n");
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, ARecordFromTheFutureIsDueSinceTheClockWasSetBack) {
  install();
  store(google, record("access", "refresh", 3600, -60));
  EXPECT_EQ(runToken({google}).output, "access\n") << "clocks are not that exact";
  store(google, record("access", "refresh", 3600, -86400));
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
  EXPECT_EQ(runToken({google}).output, "new-access\n");
  EXPECT_THAT(session->requests(), SizeIs(1));
}

TEST_F(RecordRefreshTest, ARecordFromTheFutureWithoutARefreshTokenIsServed) {
  install();
  store(google, record("access", nullptr, 3600, -86400));
  EXPECT_EQ(runToken({google}).output, "access\n");
}

TEST_F(RecordRefreshTest, AClockSetForwardByADayMakesATokenDue) {
  install();
  store(google, record("access", "refresh", 3600));
  *clock = *clock + 86400;
  session->answerWith({200, kAnswer});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
}

TEST_F(RecordRefreshTest, AHeldLockIsWaitedForUntilTheDeadline) {
  install();
  storeDue();
  ASSERT_EQ(mkdir(folder.file("qvr-oauth2").c_str(), 0700), 0);
  const host::Descriptor file(open(lockPath().c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(file.number(), LOCK_EX), 0);
  const ScopedDeadline deadline(0.2);
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kTryAgainLater);
  EXPECT_THAT(printed.error, HasSubstr("Another qvr-oauth2 command is at work"));
  EXPECT_THAT(session->requests(), IsEmpty());
}

TEST_F(RecordRefreshTest, AFolderThatCannotHoldTheLockStopsTheRefreshAlone) {
  install();
  storeDue();
  const auto before = item(google);
  ASSERT_EQ(symlink("/tmp", folder.file("qvr-oauth2").c_str()), 0);
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error,
              AllOf(HasSubstr("No refresh was sent."), HasSubstr(folder.file("qvr-oauth2"))));
  EXPECT_THAT(session->requests(), IsEmpty());
  EXPECT_EQ(item(google), before);
}

TEST_F(RecordRefreshTest, ALockFileThatIsASymbolicLinkIsNotFollowed) {
  install();
  storeDue();
  ASSERT_EQ(mkdir(folder.file("qvr-oauth2").c_str(), 0700), 0);
  ASSERT_EQ(symlink("elsewhere", lockPath().c_str()), 0);
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_THAT(printed.error, HasSubstr(lockPath()));
  EXPECT_NE(access(folder.file("qvr-oauth2/elsewhere").c_str(), F_OK), 0);
}

TEST_F(RecordRefreshTest, TheServersStatusMakesAnyErrorATransientOne) {
  install();
  for (const int status : {500, 503, 429}) {
    for (const char* const body : {"", "<html>", R"({"error":"slow_down"})", kRefusal}) {
      storeDue();
      session->answerWith({status, body});
      const Printed printed = runToken({google});
      EXPECT_EQ(printed.status, host::kTryAgainLater) << status << body << printed.error;
      EXPECT_THAT(printed.error, AllOf(HasSubstr("ry again later."), Not(HasSubstr("cannot be"))));
    }
  }
}

TEST_F(RecordRefreshTest, RefusalsThatConsentOrPolicyMendAskForANewSignInWithItsLine) {
  install();
  for (const char* const error : {"access_denied", "admin_policy_enforced", "consent_required",
                                  "interaction_required", "invalid_scope"}) {
    storeDue();
    session->answerWith({400, std::string(R"({"error":")") + error +
                                  R"(","error_description":"The words of the provider"})"});
    const Printed printed = runToken({google});
    EXPECT_EQ(printed.status, host::kSignInNeeded) << error;
    EXPECT_THAT(printed.error, AllOf(HasSubstr("The words of the provider"),
                                     HasSubstr("`qvr-oauth2 sign-in Google user@example.org`")));
  }
}

TEST_F(RecordRefreshTest, TheSignInLineNamesTheConfigurationAndStandsForAnyUser) {
  configuration.path = "/tmp/another config.toml";
  install();
  EXPECT_THAT(
      runToken({.account = {"Google", "-dash"}}).error,
      HasSubstr("`qvr-oauth2 --config '/tmp/another config.toml' sign-in -- Google -dash`"));
}

TEST_F(RecordRefreshTest, ALongRefusalIsCutWithoutLeavingAPartOfTheTokenThatItEchoes) {
  install();
  store(google, record("old-access", "a-refresh-token-of-some-length", 3600, 3600));
  const std::string refusal = std::string(290, '-') + "a-refresh-token-of-some-length";
  session->answerWith({400, R"({"error":"invalid_grant","error_description":")" + refusal + "\"}"});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kSignInNeeded);
  EXPECT_THAT(printed.error, AllOf(HasSubstr("{length"), Not(HasSubstr("a-ref"))));
}

TEST_F(RecordRefreshTest, RetryAfterIsSaid) {
  install();
  storeDue();
  session->answerWith({503, "busy", 0, {{"Retry-After", "30"}}});
  EXPECT_EQ(runToken({google}).error,
            "qvr-oauth2: Google answered with HTTP status 503 (service unavailable): try again in "
            "30 seconds.\n");
  session->answerWith({429, R"({"error":"slow_down"})", 0, {{"retry-after", "300"}}});
  EXPECT_THAT(runToken({google}).error, HasSubstr("Try again in 5 minutes.\n"));
}

// The payloads {"iss":"https://i","sub":"alice"} and {"iss":"https://i","sub":"bob"}.
constexpr const char* kAlice = "eyJpc3MiOiJodHRwczovL2kiLCJzdWIiOiJhbGljZSJ9";
constexpr const char* kBob = "eyJpc3MiOiJodHRwczovL2kiLCJzdWIiOiJib2IifQ";

// Nobody looks at its signature.
std::string idToken(const std::string& payload) {
  return "e30." + payload + ".c2ln";
}

std::string answerOf(const std::string& payload) {
  return R"({"access_token":"new-access","token_type":"Bearer","expires_in":3600,"id_token":")" +
         idToken(payload) + R"("})";
}

TEST_F(RecordRefreshTest, TheTokenOfAnotherAccountIsNotStored) {
  install();
  host::noteSubject(configuration.bundleIdentifier, google,
                    host::subjectInIDToken(idToken(kAlice)).value());
  storeDue();
  const auto before = item(google);
  session->answerWith({200, answerOf(kBob)});
  const Printed printed = runToken({google});
  EXPECT_EQ(printed.status, host::kFailed);
  EXPECT_EQ(printed.output, "");
  EXPECT_THAT(printed.error, AllOf(HasSubstr("another account"), HasSubstr("not stored")));
  EXPECT_EQ(item(google), before);
  session->answerWith({200, answerOf(kAlice)});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
}

TEST_F(RecordRefreshTest, ASubjectThatWasNeverNotedRefusesNothing) {
  install();
  storeDue();
  session->answerWith({200, answerOf(kBob)});
  EXPECT_EQ(runToken({google}).output, "new-access\n");
}

}  // namespace
}  // namespace host_test
