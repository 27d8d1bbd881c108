// The texts of the desktop entry and of the bus's service file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/DesktopEntry.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

DesktopEntry entryFor(const std::string& program) {
  return {"org.qvroauth2.command",
          "qvr-oauth2",
          program,
          {"com.example", "msauth.org.example"},
          AddedToList::kGroup};
}

TEST(DesktopEntryTest, NamesProgramSchemesAndBusActivation) {
  EXPECT_EQ(desktopEntryText(entryFor("/usr/bin/qvr-oauth2")),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Name=qvr-oauth2\n"
            "Comment=Takes the browser's answer to a sign-in\n"
            "NoDisplay=true\n"
            "TryExec=/usr/bin/qvr-oauth2\n"
            "Exec=/usr/bin/qvr-oauth2 open-url %u\n"
            "DBusActivatable=true\n"
            "MimeType=x-scheme-handler/com.example;x-scheme-handler/msauth.org.example;\n"
            "X-QVROAuth2-Added=group\n");
}

TEST(DesktopEntryTest, ServiceHasTheBusStartTheProgramForItsName) {
  EXPECT_EQ(busServiceText(entryFor("/usr/bin/qvr-oauth2")),
            "[D-BUS Service]\n"
            "Name=org.qvroauth2.command\n"
            "Exec=/usr/bin/qvr-oauth2 activate org.qvroauth2.command\n"
            "X-QVROAuth2-Added=group\n");
}

TEST(DesktopEntryTest, ProgramsPathIsQuotedWhereItHasTo) {
  struct Case {
    const char* program;
    const char* exec;
    const char* tryExec;
    const char* serviceExec;
  };
  const Case cases[] = {
      {"/a b/c", R"("/a b/c")", "/a b/c", R"("/a b/c")"},
      {"/a%u", "/a%%u", "/a%u", "/a%u"},
      {R"(/a"b)", R"("/a\\"b")", R"(/a"b)", R"("/a\\"b")"},
      {"/a$b`c", R"("/a\\$b\\`c")", "/a$b`c", R"("/a\\$b\\`c")"},
      {R"(/a\b)", R"("/a\\\\b")", R"(/a\\b)", R"("/a\\\\b")"},
      {"/a\nb", R"("/a\nb")", R"(/a\nb)", R"("/a\nb")"},
      {"/a;b", R"("/a;b")", "/a;b", R"("/a;b")"},
  };
  for (const Case& each : cases) {
    const DesktopEntry entry = entryFor(each.program);
    EXPECT_THAT(desktopEntryText(entry),
                AllOf(HasSubstr("\nExec=" + std::string(each.exec) + " open-url %u\n"),
                      HasSubstr("\nTryExec=" + std::string(each.tryExec) + "\n")));
    EXPECT_THAT(busServiceText(entry),
                HasSubstr("\nExec=" + std::string(each.serviceExec) + " activate "));
  }
}

TEST(DesktopEntryTest, MarkTellsOwnFilesFromOthers) {
  for (const AddedToList added : {AddedToList::kLines, AddedToList::kGroup, AddedToList::kFile}) {
    DesktopEntry entry = entryFor("/p");
    entry.added = added;
    EXPECT_EQ(markOf(desktopEntryText(entry)), added);
    EXPECT_EQ(markOf(busServiceText(entry)), added);
  }
  EXPECT_FALSE(markOf(""));
  EXPECT_FALSE(markOf("[Desktop Entry]\nName=X-QVROAuth2-Added=group\n"));
  EXPECT_EQ(markOf("[Desktop Entry]\nX-QVROAuth2-Added=more\n"), AddedToList::kLines)
      << "the least is assumed of what is not known";
}

}  // namespace
}  // namespace host
