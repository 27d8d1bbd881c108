// `doctor` on the desktop: who gets the redirect, and what opens the address.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/ApplicationIdentifier.h"
#include "host/DoctorChecks.h"
#include "tests/support/ChildProcess.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using State = Check::State;

class DoctorDesktop : public testing::Test {
 protected:
  DoctorDesktop() {
    configuration.bundleIdentifier = "org.example.mail";
    configuration.google = {"example-client", "", "com.example.mail"};
    for (const char* name : {"settings", "applications", "system"})
      std::filesystem::create_directory(folder.file(name));
    desktop.hasDisplay = true;
    desktop.hasOpener = true;
    desktop.folders = DesktopFolders{.settings = folder.file("settings"),
                                     .settingsOfAll = {},
                                     .applications = folder.file("applications"),
                                     .applicationsOfAll = {folder.file("system")},
                                     .busServices = folder.file("services"),
                                     .desktops = {"x-test"}};
  }

  std::string entry() const { return applicationIdentifier(configuration) + ".desktop"; }

  // Puts there what `register` does, for a program at the path.
  void install(const std::string& program) const {
    folder.write("applications/" + entry(), "[Desktop Entry]\nType=Application\nTryExec=" +
                                                program + "\nExec=" + program + " open-url %u\n");
  }
  void makeDefault(const std::string& entries, const std::string& scheme) const {
    folder.write("settings/mimeapps.list",
                 "[Default Applications]\nx-scheme-handler/" + scheme + "=" + entries + "\n");
  }

  Check handlerCheck() const {
    const Checks checks = checkRedirectHandlers(configuration, desktop);
    EXPECT_EQ(checks.size(), 1u);
    return checks.at(0);
  }

  void expectProblem(const std::string& sentence) const {
    const Check check = handlerCheck();
    EXPECT_EQ(check.state, State::kProblem);
    EXPECT_THAT(check.sentence, HasSubstr(sentence));
    EXPECT_EQ(check.remedy, "`qvr-oauth2 register`");
  }

  support::TemporaryFolder folder;
  Configuration configuration;
  DesktopSession desktop;
};

TEST_F(DoctorDesktop, FindsItselfRegistered) {
  install("/bin/sh");
  makeDefault(entry() + ";", "com.example.mail");
  const Check check = handlerCheck();
  EXPECT_EQ(check.state, State::kOk) << check.sentence;
  EXPECT_THAT(check.sentence, HasSubstr("com.example.mail"));
}

TEST_F(DoctorDesktop, LooksAtTheSchemeOfEachRegistration) {
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  install("/bin/sh");
  makeDefault(entry(), "com.example.mail");
  const Checks checks = checkRedirectHandlers(configuration, desktop);
  ASSERT_EQ(checks.size(), 2u);
  EXPECT_EQ(checks[0].state, State::kOk);
  EXPECT_EQ(checks[1].state, State::kProblem);
  EXPECT_THAT(checks[1].sentence, HasSubstr("msauth.org.example.mail"));
}

TEST_F(DoctorDesktop, HasNoSchemeToLookAtWithoutARegistration) {
  configuration.google = {};
  const Check check = handlerCheck();
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_EQ(check.sentence, "Could not be checked: it needs a registration.");
}

TEST_F(DoctorDesktop, NamesACommandThatIsNotRegistered) {
  expectProblem("not registered for com.example.mail");
}

TEST_F(DoctorDesktop, NamesADesktopWithoutADefault) {
  install("/bin/sh");
  expectProblem("no default application");
}

TEST_F(DoctorDesktop, NamesAnotherApplicationThatIsTheDefault) {
  install("/bin/sh");
  folder.write("system/other.desktop", "[Desktop Entry]\n");
  makeDefault("other.desktop;" + entry(), "com.example.mail");
  expectProblem("hands com.example.mail to other.desktop");
}

TEST_F(DoctorDesktop, NamesAProgramThatIsGone) {
  install("/none/such\\\\ program");
  makeDefault(entry(), "com.example.mail");
  expectProblem("is gone: /none/such\\ program");
}

TEST_F(DoctorDesktop, OnlyWarnsWhereNoDesktopIs) {
  desktop.hasDisplay = false;
  const Check check = handlerCheck();
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_THAT(check.remedy, AllOf(HasSubstr("qvr-oauth2 register"), HasSubstr("paste")));
}

TEST_F(DoctorDesktop, CannotLookWithoutAHome) {
  desktop.folders.reset();
  EXPECT_THAT(handlerCheck().sentence, HasSubstr("Could not be checked"));
  EXPECT_EQ(checkBrowser(desktop).state, State::kWarning);
}

TEST_F(DoctorDesktop, NamesTheBrowserThatXdgOpenStarts) {
  folder.write("system/browser.desktop", "[Desktop Entry]\n");
  makeDefault("gone.desktop;browser.desktop", "https");
  const Check check = checkBrowser(desktop);
  EXPECT_EQ(check.state, State::kOk);
  EXPECT_THAT(check.sentence, HasSubstr("xdg-open opens the address: browser.desktop"));
}

TEST_F(DoctorDesktop, FallsBackToTheBrowserVariable) {
  desktop.browser = "w3m";
  EXPECT_THAT(checkBrowser(desktop).sentence, HasSubstr("$BROWSER opens the address: w3m"));
  desktop.hasDisplay = false;
  EXPECT_EQ(checkBrowser(desktop).state, State::kOk);
}

TEST_F(DoctorDesktop, LeavesASandboxToThePortal) {
  desktop.isSandboxed = true;
  desktop.hasDisplay = false;
  const Check check = checkBrowser(desktop);
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_THAT(check.sentence, AllOf(HasSubstr("Could not be checked"), HasSubstr("portal")));
  EXPECT_THAT(check.remedy, HasSubstr("sign-in --no-browser"));
}

TEST_F(DoctorDesktop, SaysHowToSignInWithoutABrowser) {
  const auto expectWarning = [this](const char* sentence, const char* step) {
    const Check check = checkBrowser(desktop);
    EXPECT_EQ(check.state, State::kWarning);
    EXPECT_THAT(check.sentence, HasSubstr(sentence));
    EXPECT_THAT(check.remedy,
                AllOf(HasSubstr(step), HasSubstr("sign-in --no-browser"), HasSubstr("paste")));
  };
  expectWarning("No application is known", "xdg-settings set default-web-browser");
  desktop.hasOpener = false;
  expectWarning("Neither xdg-open", "Install xdg-utils");
  desktop.hasDisplay = false;
  expectWarning("no desktop here", "Over SSH");
}

}  // namespace
}  // namespace host
