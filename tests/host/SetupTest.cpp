// What the library is told before its first use.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "host/Secrets.h"
#include "host/Setup.h"
#include "host/Wait.h"
#include "src/platform/World.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class SetupTest : public testing::Test {
 protected:
  SetupTest() {
    configuration.bundleIdentifier = "org.example.mail";
    configuration.google = {"example-client", "configured-secret", "com.example.mail"};
    configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
    configuration.endpoints = {"google.test:1", "token.google.test:2", "login.test:3", ""};
    seams.keychainItems = keychain;
  }

  qvr::ScopedWorld world;
  host::Configuration configuration;
  qvr::Ref<support::FakeKeychain> keychain = qvr::makeRef<support::FakeKeychain>();
  host::Seams seams;
};

TEST_F(SetupTest, TellsTheRegistrationsAndEndpoints) {
  ASSERT_FALSE(host::installHost(configuration, seams));
  const auto google = QVRGoogleOAuth2PublicClient::init();
  EXPECT_EQ(google->clientIdentifier(), "example-client");
  EXPECT_EQ(google->clientSecret(), "configured-secret");
  EXPECT_EQ(google->redirectURI(), host::googleRedirectURI("com.example.mail"));
  EXPECT_EQ(google->authorizationURI(), "https://google.test:1/o/oauth2/auth");
  EXPECT_EQ(google->tokenURI(), "https://token.google.test:2/token");
  const auto microsoft = QVRMicrosoftOAuth2PublicClient::init();
  EXPECT_EQ(microsoft->clientIdentifier(), "01234567-89ab-cdef-0123-456789abcdef");
  EXPECT_EQ(microsoft->redirectURI(), host::microsoftRedirectURI("org.example.mail"));
  EXPECT_EQ(microsoft->tokenURI(), "https://login.test:3/common/oauth2/v2.0/token");
  EXPECT_EQ(QVROAuth2Keychain::serviceNameForService("Google"),
            "org.example.mail.Google.OAuth2Token");
}

TEST_F(SetupTest, HandsOutTheKeychainAndTheClockThatItInstalled) {
  seams.clock = [] { return qvr::Date{42}; };
  ASSERT_FALSE(host::installHost(configuration, seams));
  EXPECT_EQ(host::keychainItems(), keychain);
  EXPECT_EQ(host::now(), qvr::Date{42});
}

TEST_F(SetupTest, LogsNoSecret) {
  ASSERT_FALSE(host::installHost(configuration, seams));
  const Printed printed = collect([] {
    QVROAuth2ErrorCodeFromString("unheard_of configured-secret");  // logged, being unknown
    return 0;
  });
  EXPECT_THAT(printed.error,
              AllOf(HasSubstr("unheard_of {length = 17}"), Not(HasSubstr("configured-secret"))));
}

TEST_F(SetupTest, InstallsNothingWhenItFails) {
  configuration.endpoints.certificateAuthorityFile = "/none/such.pem";
  ASSERT_TRUE(host::installHost(configuration, seams));
  configuration.endpoints.certificateAuthorityFile.clear();
  EXPECT_FALSE(host::installHost(configuration, seams)) << "a second time would raise";
}

// What is told when a request is answered, by a session that was installed as it is now.
std::string toldOfARequest(const host::Configuration& configuration, host::Seams seams) {
  const auto session = qvr::makeRef<AnsweringSession>();
  session->answerWith({200, R"({"access_token":"token-of-the-answer"})", 0});
  seams.urlSession = session;
  return collect([&] {
           EXPECT_FALSE(host::installHost(configuration, std::move(seams)));
           const host::Outcome<bool> handled;
           const auto task = host::urlSession()->dataTask(
               qvr::URLRequest(*qvr::URL::URLWithString("https://token.test/token")),
               [handled](auto data, auto*, auto) { handled.deliver(data.has_value()); });
           task->resume();
           EXPECT_EQ(handled.wait(30), true);
           return 0;
         })
      .error;
}

TEST_F(SetupTest, TellsOfRequestsAndAnswersWhenStepsAreShown) {
  const ScopedSteps steps;
  EXPECT_THAT(toldOfARequest(configuration, seams),
              AllOf(HasSubstr("request 1: GET https://token.test/token\n"),
                    HasSubstr("{access_token: {length = 19}}"), Not(HasSubstr("token-of-the"))));
}

TEST_F(SetupTest, TellsOfNoRequestOtherwise) {
  EXPECT_EQ(toldOfARequest(configuration, seams), "");
}

}  // namespace
}  // namespace host_test
