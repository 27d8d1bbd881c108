// A user's list of handlers, edited: nothing else in it changes, and removing undoes adding.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/HandlerList.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kType = "x-scheme-handler/com.example";
constexpr const char* kOurs = "ours.desktop";

std::string preferredIn(std::string_view text) {
  HandlerList list(text);
  list.prefer(kType, kOurs);
  return list.text();
}

TEST(HandlerListTest, EmptyListGetsAGroupAndALine) {
  EXPECT_EQ(preferredIn(""),
            "[Default Applications]\nx-scheme-handler/com.example=ours.desktop;\n");
}

TEST(HandlerListTest, OwnEntryComesBeforeThePreviousOne) {
  EXPECT_EQ(preferredIn("[Default Applications]\nx-scheme-handler/com.example=other.desktop\n"),
            "[Default Applications]\nx-scheme-handler/com.example=ours.desktop;other.desktop\n");
}

TEST(HandlerListTest, LineIsAddedBehindTheLastOfItsGroup) {
  EXPECT_EQ(preferredIn("# mine\n\n[Default Applications]\ntext/html=web.desktop\n\n"
                        "[Added Associations]\nx-scheme-handler/com.example=no.desktop;\n"),
            "# mine\n\n[Default Applications]\ntext/html=web.desktop\n"
            "x-scheme-handler/com.example=ours.desktop;\n\n"
            "[Added Associations]\nx-scheme-handler/com.example=no.desktop;\n");
}

TEST(HandlerListTest, EntryFurtherBehindMovesToTheFront) {
  EXPECT_EQ(preferredIn("[Default Applications]\n"
                        "x-scheme-handler/com.example=other.desktop;ours.desktop;third.desktop;\n"),
            "[Default Applications]\n"
            "x-scheme-handler/com.example=ours.desktop;other.desktop;third.desktop;\n");
}

TEST(HandlerListTest, PreferringAgainChangesNothing) {
  for (const char* const text :
       {"", "[Default Applications]\nx-scheme-handler/com.example = a.desktop;b.desktop\n",
        "[Default Applications]\r\nx-scheme-handler/com.example=a.desktop;\r\n"}) {
    const std::string once = preferredIn(text);
    EXPECT_EQ(preferredIn(once), once);
  }
}

// As `unregister` does it; `isOurGroup`: there was none before.
std::string removedFrom(const std::string& text, bool isOurGroup) {
  HandlerList list(text);
  for (const std::string& type : list.typesOf(kOurs))
    list.remove(type, kOurs);
  if (isOurGroup) list.removeEmptyGroup();
  return list.text();
}

TEST(HandlerListTest, RemovingUndoesAddingToTheByte) {
  for (const std::string text :
       {"", "\n", "# a comment", "# a comment\n", "[Added Associations]\na/b=c.desktop;",
        "[Added Associations]\na/b=c.desktop;\n\n\n", "[Default Applications]",
        "[Default Applications]\n", "[Default Applications]\n\n[Removed Associations]\n",
        "[Default Applications]\na/b=c.desktop", "[Default Applications]\na/b=c.desktop\n\n# end",
        "[Default Applications]\nx-scheme-handler/com.example=other.desktop",
        "[Default Applications]\n  x-scheme-handler/com.example = other.desktop;third.desktop;\n",
        "[Default "
        "Applications]\r\nx-scheme-handler/com.example=other.desktop;\r\na/b=c.desktop\r\n",
        "[Default Applications]\nx-scheme-handler/com.example=a.desktop\n"
        "x-scheme-handler/com.example=b.desktop\n",
        "[X]\n[Default Applications]\na/b=c.desktop\n[Default Applications]\nd/e=f.desktop\n"}) {
    HandlerList list(text);
    const bool isOurGroup = !list.hasGroup();
    list.prefer(kType, kOurs);
    list.prefer("x-scheme-handler/msauth.example", kOurs);
    EXPECT_THAT(list.handlers(kType).front(), kOurs) << text;
    EXPECT_EQ(removedFrom(list.text(), isOurGroup), text);
  }
}

TEST(HandlerListTest, GroupThatSomebodyAddedToStays) {
  HandlerList list(preferredIn(""));
  list.prefer("text/html", "web.desktop");
  EXPECT_EQ(removedFrom(list.text(), true), "[Default Applications]\ntext/html=web.desktop;\n");
}

TEST(HandlerListTest, ListWithoutALastNewlineBecomesEmpty) {
  HandlerList list("[Default Applications]");
  list.removeEmptyGroup();
  EXPECT_EQ(list.text(), "");
}

TEST(HandlerListTest, LineThatSomebodyElseEmptiedIsLeftAlone) {
  const std::string text = "[Default Applications]\nx-scheme-handler/com.example=\n";
  EXPECT_EQ(removedFrom(text, true), text);
}

TEST(HandlerListTest, OnlyDefaultsOutsideCommentsAreRead) {
  const HandlerList list(
      "x-scheme-handler/com.example=before.desktop\n"
      "[Added Associations]\nx-scheme-handler/com.example=added.desktop\n"
      "[Default Applications]\n#x-scheme-handler/com.example=comment.desktop\n"
      "x-scheme-handler/com.example= a.desktop ;;b.desktop\n"
      "x-scheme-handler/com.example.more=c.desktop\n[Last]\n");
  EXPECT_THAT(list.handlers(kType), ElementsAre("a.desktop", "b.desktop"));
  EXPECT_THAT(list.handlers("x-scheme-handler/com"), IsEmpty());
  EXPECT_THAT(list.typesOf("c.desktop"), ElementsAre("x-scheme-handler/com.example.more"));
  EXPECT_THAT(list.typesOf("added.desktop"), IsEmpty());
}

}  // namespace
}  // namespace host
