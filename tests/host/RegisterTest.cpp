// `register` and `unregister`, run as a user runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

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

  // Everything below the home, folders too, and what is in the files.
  std::pair<std::map<std::string, std::string>, std::set<std::string>> tree() const {
    std::set<std::string> names;
    for (const auto& each : std::filesystem::recursive_directory_iterator(home.path("")))
      names.insert(each.path());
    return {home.files(), names};
  }

  void renameBundle(const std::string& bundleIdentifier) const {
    home.configure(bundleIdentifier,
                   "[google]\nclient_identifier = \"id\"\n"
                   "custom_uri_scheme = \"com.example.mail\"\n");
  }

  // The folders that everybody keeps things in.
  void makeBaseFolders() const {
    for (const char* const folder : {"data", "config"})
      std::filesystem::create_directory(home.path(folder));
  }

  static constexpr const char* kCache = "data/applications/mimeinfo.cache";
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

TEST_F(RegisterTest, UnregisterGivesBackTheWholeTree) {
  makeBaseFolders();
  const auto before = tree();
  registerIt();
  ASSERT_TRUE(home.exists(kCache)) << "without it this test proves less";
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_EQ(tree(), before);
}

TEST_F(RegisterTest, UnregisterLeavesFoldersThatAreInUse) {
  home.write("data/applications/folder/mine.desktop", "[Desktop Entry]\nType=Application\n");
  home.write(kCache, "[MIME Cache]\n");
  home.write("data/dbus-1/services/mine.service", "[D-BUS Service]\n");
  home.write("config/other", "");
  const auto before = tree();
  registerIt();
  EXPECT_NE(tree(), before);
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_EQ(tree(), before);
}

TEST_F(RegisterTest, UnregisterLeavesACacheThatListsSomething) {
  home.write("data/applications/mine.desktop",
             "[Desktop Entry]\nType=Application\nName=Mine\nExec=/bin/true %u\n"
             "MimeType=text/plain;\n");
  registerIt();
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  EXPECT_EQ(home.read(kCache), "[MIME Cache]\ntext/plain=mine.desktop;\n");
}

TEST_F(RegisterTest, UnregisterNamesRegistrationsOfOtherBundleIdentifiers) {
  registerIt();
  const auto before = home.files();
  renameBundle("org.example.renamed");
  for (int i = 0; i < 2; ++i) {
    const Finished result = home.run({"unregister"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, AllOf(HasSubstr(i == 0 ? "Nothing was registered.\n" : "Unregist"),
                                     HasSubstr("still registered"), HasSubstr(kOurs),
                                     HasSubstr("`qvr-oauth2 unregister --all`")));
    EXPECT_EQ(home.files(), before);
    registerIt();
  }
}

TEST_F(RegisterTest, RegisterCallsItsOwnOldEntryAnEarlierRegistration) {
  registerIt();
  renameBundle("org.example.renamed");
  EXPECT_THAT(home.run({"register"}).output,
              AllOf(HasSubstr("Until now an earlier registration of this command had "
                              "com.example.mail;"),
                    Not(HasSubstr(kOurs))));
}

TEST_F(RegisterTest, UnregisterAllRemovesEveryRegistrationWithoutAConfiguration) {
  makeBaseFolders();
  std::filesystem::remove(home.path("settings.toml"));
  const auto before = tree();
  for (const std::string bundle : {"org.example.mail", "org.example.renamed"}) {
    renameBundle(bundle);
    registerIt();
  }
  home.write("settings.toml", "no TOML");
  for (int i = 0; i < 2; ++i) {
    const Finished failed = home.run({"unregister"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.error, HasSubstr("`qvr-oauth2 unregister --all` needs no configuration."));
    std::filesystem::remove(home.path("settings.toml"));
  }
  const Finished result = home.run({"unregister", "--all"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_EQ(result.output,
            "Unregistered: the desktop no longer hands redirects to this command.\n");
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(home.run({"unregister", "--all"}).output, "Nothing was registered.\n");
}

TEST_F(RegisterTest, UnregisterAllTakesOnlyWhatHasTheMarkAndTheName) {
  registerIt();
  const std::string copy = home.read(DesktopHome::entryFile());
  EXPECT_EQ(home.run({"unregister"}).status, 0);
  const std::string foreign = "org.qvroauth2.command.foreign";
  home.write(DesktopHome::desktopFile("mine"), copy);
  home.write(DesktopHome::desktopFile(foreign), "[Desktop Entry]\nType=Application\n");
  home.write(DesktopHome::kList, "[Default Applications]\na/b=" + foreign + ".desktop;\n");
  const auto before = home.files();
  EXPECT_EQ(home.run({"unregister", "--all"}).output, "Nothing was registered.\n");
  EXPECT_EQ(home.files(), before);
}

TEST_F(RegisterTest, UnregisterAllTakesAServiceWhoseEntryIsGone) {
  makeBaseFolders();
  const auto before = tree();
  registerIt();
  std::filesystem::remove(home.path(DesktopHome::entryFile()));
  EXPECT_THAT(home.run({"unregister", "--all"}).output, HasSubstr("Unregistered"));
  EXPECT_FALSE(home.exists(DesktopHome::serviceFile()));
  EXPECT_FALSE(home.exists(DesktopHome::kList));
  EXPECT_EQ(tree(), before);
}

TEST_F(RegisterTest, RegistrationsGiveBackTheListInAnyOrder) {
  const std::string first = "org.example.mail";
  const std::string second = "org.example.renamed";
  for (const auto& order : {std::vector{first, second}, std::vector{second, first}}) {
    for (const std::string& bundle : {first, second}) {
      renameBundle(bundle);
      registerIt();
    }
    for (const std::string& bundle : order) {
      EXPECT_TRUE(home.exists(DesktopHome::kList));
      renameBundle(bundle);
      EXPECT_EQ(home.run({"unregister"}).status, 0);
    }
    EXPECT_FALSE(home.exists(DesktopHome::kList));
  }
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
  EXPECT_FALSE(home.exists(kCache));
}

}  // namespace
}  // namespace host_test
