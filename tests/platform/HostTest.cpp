// What the host tells the library, and when it is too late.

#include "QVROAuth2Client/QVROAuth2Host.h"
#include "QVROAuth2Client/platform/Exception.h"
#include "tests/support/LibraryTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

const qvr::World::Settings& settings() {
  return qvr::World::current().settings();
}

class HostTest : public testing::Test {
 protected:
  qvr::ScopedWorld world;
  QVROAuth2Host host;
};

void expectDefaults(const qvr::World::Settings& s) {
  EXPECT_EQ(s.bundleIdentifier, std::nullopt);
  EXPECT_EQ(s.googleClientIdentifier, "");
  EXPECT_EQ(s.googleClientSecret, "");
  EXPECT_EQ(s.googleCustomURIScheme, "");
  EXPECT_EQ(s.microsoftApplicationIdentifier, "");
  EXPECT_EQ(s.googleAuthorizationHost, "accounts.google.com");
  EXPECT_EQ(s.googleTokenHost, "oauth2.googleapis.com");
  EXPECT_EQ(s.microsoftLoginHost, "login.microsoftonline.com");
  EXPECT_THAT(s.localizedStrings, IsEmpty());
  EXPECT_FALSE(s.urlSession || s.keychainItems || s.workspace || s.randomSource);
  EXPECT_FALSE(s.logSink || s.clock || s.serialQueueFactory);
}

TEST_F(HostTest, DefaultsAreThoseOfAHostThatSaysNothing) {
  host.install();
  expectDefaults(settings());
}

TEST_F(HostTest, ALibraryWithoutAHostHasTheSameDefaults) {
  expectDefaults(settings());
}

TEST_F(HostTest, WhatIsSetArrives) {
  host.setBundleIdentifier("org.example.mail");
  host.setGoogleRegistration("identifier", "secret", "scheme");
  host.setMicrosoftApplicationIdentifier("application");
  host.setGoogleAuthorizationHost("a.example:1");
  host.setGoogleTokenHost("t.example:2");
  host.setMicrosoftLoginHost("m.example:3");
  host.install();
  EXPECT_EQ(settings().bundleIdentifier, "org.example.mail");
  EXPECT_EQ(settings().googleClientIdentifier, "identifier");
  EXPECT_EQ(settings().googleClientSecret, "secret");
  EXPECT_EQ(settings().googleCustomURIScheme, "scheme");
  EXPECT_EQ(settings().microsoftApplicationIdentifier, "application");
  EXPECT_EQ(settings().googleAuthorizationHost, "a.example:1");
  EXPECT_EQ(settings().googleTokenHost, "t.example:2");
  EXPECT_EQ(settings().microsoftLoginHost, "m.example:3");
}

TEST_F(HostTest, AbsentBundleIdentifierStaysAbsentAndEmptyStaysEmpty) {
  host.setBundleIdentifier("x");
  host.setBundleIdentifier(nullptr);
  host.install();
  EXPECT_EQ(settings().bundleIdentifier, std::nullopt);
  const qvr::ScopedWorld another;
  host.setBundleIdentifier("");
  host.install();
  EXPECT_EQ(settings().bundleIdentifier, "");
}

TEST_F(HostTest, AbsentGoogleSecretIsKeptAsTheEmptyOne) {
  host.setGoogleRegistration("identifier", nullptr, "scheme");
  host.install();
  EXPECT_EQ(settings().googleClientSecret, "");
}

TEST_F(HostTest, TranslatesItsThreeTextsAndIgnoresOthers) {
  host.setLocalizedString("Missing required response parameter: %@", "fehlt: %@");
  host.setLocalizedString("Missing required response parameters: %@", "fehlen: %@");
  host.setLocalizedString(", ", " und ");
  host.setLocalizedString("cancelled", "abgebrochen");
  host.setLocalizedString(",", ";");
  host.setLocalizedString(nullptr, "nichts");
  host.install();
  EXPECT_THAT(
      settings().localizedStrings,
      ElementsAre(Pair(", ", " und "), Pair("Missing required response parameter: %@", "fehlt: %@"),
                  Pair("Missing required response parameters: %@", "fehlen: %@")));
}

TEST_F(HostTest, TheLatestTranslationCountsAndAnAbsentOneIsNone) {
  host.setLocalizedString(", ", " und ");
  host.setLocalizedString(", ", "; ");
  host.setLocalizedString(", ", nullptr);
  host.install();
  EXPECT_THAT(settings().localizedStrings, ElementsAre(Pair(", ", "; ")));
}

TEST_F(HostTest, InstalledSettingsDoNotFollowTheHostObject) {
  host.setBundleIdentifier("org.example.mail");
  host.install();
  host.setBundleIdentifier("org.example.other");
  EXPECT_EQ(settings().bundleIdentifier, "org.example.mail");
}

TEST_F(HostTest, TheHostObjectIsEmptyAfterwards) {
  host.setBundleIdentifier("org.example.mail");
  host.setGoogleTokenHost("t.example");
  host.setLocalizedString(", ", "; ");
  host.install();
  const qvr::ScopedWorld another;
  host.install();
  expectDefaults(settings());
}

TEST_F(HostTest, MayBeMovedWithItsSettings) {
  host.setBundleIdentifier("org.example.mail");
  QVROAuth2Host moved = std::move(host);
  QVROAuth2Host assigned;
  assigned = std::move(moved);
  assigned.install();
  EXPECT_EQ(settings().bundleIdentifier, "org.example.mail");
}

TEST_F(HostTest, InstallingTwiceRaises) {
  host.install();
  try {
    QVROAuth2Host().install();
    FAIL() << "installed twice";
  } catch (const qvr::InternalInconsistencyException& exception) {
    EXPECT_THAT(*exception.reason(), StartsWith("*** -[QVROAuth2Host install]: "));
  }
}

// Everything that a host may do before it installs counts as the first use.
TEST_F(HostTest, InstallingAfterTheFirstUseRaises) {
  const std::function<void()> uses[] = {
      [] { (void)QVROAuth2Keychain::serviceNameForService("Google"); },
      [] { (void)QVROAuth2Keychain::queue(); },
      [] { (void)QVRGoogleOAuth2PublicClient::init(); },
      [] { (void)QVRMicrosoftOAuth2PublicClient::init(); },
      [] { EXPECT_THROW(QVROAuth2Keychain::init(), qvr::InternalInconsistencyException); },
      [] { (void)support::makeToken("at", 0, "rt", 0)->shouldRefreshToken(); },
  };
  for (const std::function<void()>& use : uses) {
    const qvr::ScopedWorld another;
    use();
    EXPECT_THROW(QVROAuth2Host().install(), qvr::InternalInconsistencyException);
  }
}

class HostSeamsTest : public support::LibraryTest {};

TEST_F(HostSeamsTest, TheHostsSeamsAreTheOnesInUse) {
  installHost();
  qvr::World& current = qvr::World::current();
  EXPECT_EQ(current.urlSession(), session);
  EXPECT_EQ(current.keychainItems(), keychain);
  EXPECT_EQ(current.workspace(), workspace);
  EXPECT_EQ(current.randomSource(), random);
  EXPECT_EQ(current.now(), qvr::Date{clock->now});
  current.log("line");
  EXPECT_THAT(*log, ElementsAre("line"));
  const qvr::Ref<qvr::Executor> queue = current.makeSerialQueue("q");
  EXPECT_EQ(queue, queues.named("q"));
}

TEST_F(HostSeamsTest, NothingIsMadeBeforeItIsUsed) {
  installHost();
  EXPECT_THAT(queues.labels(), IsEmpty());
  EXPECT_THAT(session->tasks(), IsEmpty());
  EXPECT_THAT(keychain->calls(), IsEmpty());
}

}  // namespace
