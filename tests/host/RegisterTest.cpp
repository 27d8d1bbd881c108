// `register` and `unregister`, run as a user runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/host/DesktopHome.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Key;
using testing::Not;

class RegisterTest : public testing::Test {
 protected:
  void registerIt() { EXPECT_EQ(home.run({"register"}).status, 0); }

  std::string handlerBy(const std::string& scheme) const {
    return home.runProgram({"xdg-mime", "query", "default", "x-scheme-handler/" + scheme}).output;
  }

  // Runs the command without the power of root to write everywhere.
  Finished runBoundByModes(const std::string& command) const {
    std::vector<std::string> arguments{QVR_OAUTH2_PROGRAM, "--config", home.path("settings.toml"),
                                       command};
    if (geteuid() == 0)
      arguments.insert(arguments.begin(),
                       {"setpriv", "--bounding-set=-dac_override,-dac_read_search"});
    return home.runProgram(arguments);
  }

  static constexpr const char* kOurs = "org.qvroauth2.command.org_example_mail.desktop";
  DesktopHome home;
};

TEST_F(RegisterTest, MakesTheCommandTheDefaultHandlerOfItsSchemes) {
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_THAT(result.output, AllOf(HasSubstr("Registered: "), HasSubstr("com.example.mail and "),
                                   HasSubstr("msauth.org.example.mail")));
  EXPECT_EQ(result.error, "");
  for (const char* const scheme : {DesktopHome::kGoogleScheme, DesktopHome::kMicrosoftScheme})
    EXPECT_EQ(handlerBy(scheme), std::string(kOurs) + "\n");
  EXPECT_THAT(home.read(DesktopHome::entryFile()),
              HasSubstr("\nExec=" + std::filesystem::canonical(QVR_OAUTH2_PROGRAM).string() +
                        " open-url %u\n"));
  EXPECT_THAT(home.read(DesktopHome::serviceFile()),
              HasSubstr("\nName=" + std::string(DesktopHome::kIdentifier) + "\n"));
}

TEST_F(RegisterTest, WrittenEntryIsValid) {
  registerIt();
  const Finished result =
      home.runProgram({"desktop-file-validate", home.path(DesktopHome::entryFile())});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output + result.error, "");
}

TEST_F(RegisterTest, ASecondTimeChangesNothing) {
  registerIt();
  const auto before = home.files();
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("Registered already"));
  EXPECT_EQ(home.files(), before);
}

TEST_F(RegisterTest, UnregisterLeavesNothingOfItsOwn) {
  registerIt();
  const Finished result = home.run({"unregister"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_THAT(result.output, HasSubstr("Unregistered"));
  for (const auto& [name, content] : home.files())
    EXPECT_THAT(name + content, Not(HasSubstr("qvroauth2"))) << name;
  EXPECT_FALSE(home.exists(DesktopHome::kList));
}

TEST_F(RegisterTest, UnregisterWithoutRegistrationSaysSo) {
  for (int i = 0; i < 2; ++i) {
    const Finished result = home.run({"unregister"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "Nothing was registered.\n");
    registerIt();
    EXPECT_EQ(home.run({"unregister"}).status, 0);
  }
}

TEST_F(RegisterTest, UsersListComesBackToTheByte) {
  for (const std::string list :
       {"", "[Default Applications]\n", "# mine", "[Added Associations]\na/b=c.desktop;\n",
        "[Default Applications]\nx-scheme-handler/com.example.mail=o.desktop"}) {
    home.write(DesktopHome::kList, list);
    registerIt();
    registerIt();
    EXPECT_NE(home.read(DesktopHome::kList), list);
    EXPECT_EQ(home.run({"unregister"}).status, 0);
    EXPECT_TRUE(home.exists(DesktopHome::kList));
    EXPECT_EQ(home.read(DesktopHome::kList), list);
  }
}

TEST_F(RegisterTest, ListKeepsItsModeAndStaysASymbolicLink) {
  home.write("dotfiles/list", "[Default Applications]\n");
  ASSERT_EQ(chmod(home.path("dotfiles/list").c_str(), 0644), 0);
  std::filesystem::create_directory(home.path("config"));
  std::filesystem::create_symlink("../dotfiles/list", home.path(DesktopHome::kList));
  registerIt();
  EXPECT_TRUE(std::filesystem::is_symlink(home.path(DesktopHome::kList)));
  EXPECT_THAT(home.read("dotfiles/list"), HasSubstr(kOurs));
  struct stat status {};
  ASSERT_EQ(stat(home.path("dotfiles/list").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(RegisterTest, ChosenHandlerIsNamedAndComesBack) {
  home.install("other.desktop", DesktopHome::kGoogleScheme);
  home.write(DesktopHome::kList,
             "[Default Applications]\nx-scheme-handler/com.example.mail=other.desktop;\n");
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("other.desktop had com.example.mail"));
  EXPECT_EQ(handlerBy(DesktopHome::kGoogleScheme), std::string(kOurs) + "\n");
  EXPECT_THAT(home.run({"unregister"}).output,
              HasSubstr("other.desktop has com.example.mail again"));
  EXPECT_EQ(handlerBy(DesktopHome::kGoogleScheme), "other.desktop\n");
}

TEST_F(RegisterTest, HandlerThatWasOnlyInstalledIsNamedAndComesBack) {
  home.install("other.desktop", DesktopHome::kMicrosoftScheme);
  EXPECT_THAT(home.run({"register"}).output,
              HasSubstr("other.desktop had msauth.org.example.mail"));
  EXPECT_EQ(handlerBy(DesktopHome::kMicrosoftScheme), std::string(kOurs) + "\n");
  EXPECT_THAT(home.run({"unregister"}).output,
              HasSubstr("other.desktop has msauth.org.example.mail again"));
  EXPECT_EQ(handlerBy(DesktopHome::kMicrosoftScheme), "other.desktop\n");
}

TEST_F(RegisterTest, DesktopsOwnListThatComesFirstIsNamed) {
  home.environment["XDG_CURRENT_DESKTOP"] = "Other:GNOME";
  home.write("config/gnome-mimeapps.list",
             "[Default Applications]\nx-scheme-handler/com.example.mail=other.desktop;\n");
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.error, AllOf(HasSubstr("gnome-mimeapps.list"), HasSubstr("other.desktop"),
                                  HasSubstr("x-scheme-handler/com.example.mail")));
}

TEST_F(RegisterTest, ChangedSchemesReplaceTheOldOnes) {
  registerIt();
  home.configure("org.example.mail",
                 "[google]\nclient_identifier = \"id\"\ncustom_uri_scheme = \"com.example.new\"\n");
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("Registered: "));
  EXPECT_EQ(
      home.read(DesktopHome::kList),
      "[Default Applications]\nx-scheme-handler/com.example.new=" + std::string(kOurs) + ";\n");
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_FALSE(home.exists(DesktopHome::kList));
}

TEST_F(RegisterTest, SeveralConfigurationsStandSideBySide) {
  registerIt();
  const auto before = home.files();
  home.configure(
      "org.qvroauth2.command",
      "[microsoft]\napplication_identifier = \"01234567-89ab-cdef-0123-456789abcdef\"\n");
  registerIt();
  EXPECT_EQ(handlerBy("msauth.org.qvroauth2.command"), "org.qvroauth2.command.desktop\n");
  EXPECT_EQ(handlerBy(DesktopHome::kMicrosoftScheme), std::string(kOurs) + "\n");
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_EQ(home.files(), before);
}

TEST_F(RegisterTest, ConfigurationWithoutASchemeHasNothingToRegister) {
  home.configure("org.example.mail", "");
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.error, AllOf(HasSubstr("nothing to register"), HasSubstr("custom_uri_scheme"),
                                  HasSubstr("application_identifier")));
  EXPECT_THAT(home.files(), testing::IsEmpty());
}

TEST_F(RegisterTest, FileOfAnotherApplicationIsNeverTouched) {
  for (const std::string& file : {DesktopHome::entryFile(), DesktopHome::serviceFile()}) {
    home.write(file, "[Foreign]\n");
    const auto before = home.files();
    const Finished result = home.run({"register"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr(file));
    EXPECT_EQ(home.run({"unregister"}).output, "Nothing was registered.\n");
    EXPECT_EQ(home.files(), before);
    std::filesystem::remove(home.path(file));
  }
}

TEST_F(RegisterTest, ReadOnlyHomeIsAClearFailure) {
  ASSERT_EQ(chmod(home.path("").c_str(), 0500), 0);
  const Finished result = runBoundByModes("register");
  ASSERT_EQ(chmod(home.path("").c_str(), 0700), 0);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.error, AllOf(HasSubstr(home.path("data")), HasSubstr("Permission denied")));
  EXPECT_EQ(result.output, "");
  EXPECT_FALSE(home.exists("data"));
}

TEST_F(RegisterTest, FailureHalfWayIsUndone) {
  home.write(DesktopHome::kList, "[Default Applications]\n");
  ASSERT_EQ(chmod(home.path("config").c_str(), 0500), 0);
  const auto before = home.files();
  const Finished result = runBoundByModes("register");
  ASSERT_EQ(chmod(home.path("config").c_str(), 0700), 0);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.error, HasSubstr(home.path(DesktopHome::kList)));
  EXPECT_EQ(home.files(), before);
  EXPECT_FALSE(home.exists("data")) << "folders that were made are removed too";
}

TEST_F(RegisterTest, FailureHalfWayLeavesAnEarlierRegistration) {
  registerIt();
  const auto before = home.files();
  home.configure("org.example.mail",
                 "[google]\nclient_identifier = \"id\"\ncustom_uri_scheme = \"com.example.new\"\n");
  ASSERT_EQ(chmod(home.path("config").c_str(), 0500), 0);
  EXPECT_EQ(runBoundByModes("register").status, 1);
  EXPECT_EQ(runBoundByModes("unregister").status, 1);
  ASSERT_EQ(chmod(home.path("config").c_str(), 0700), 0);
  EXPECT_EQ(home.files(), before);
}

TEST_F(RegisterTest, NoProgramToUpdateTheDesktopIsNoFailure) {
  home.environment["PATH"] = home.path("empty");
  const Finished result = home.run({"register"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.error, "");
  EXPECT_FALSE(home.exists("data/applications/mimeinfo.cache"));
}

}  // namespace
}  // namespace host_test
