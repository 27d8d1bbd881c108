// docs/mail-clients.md shows the very recipes that the other tests run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "tests/e2e/mail/Template.h"

namespace e2e {
namespace {

// What the guide's reader has to replace, and the files of a Debian system.
const Values kReadersValues = {{"PROVIDER", "Google"},
                               {"USER", "you@gmail.com"},
                               {"USER_IN_URL", "you%40gmail.com"},
                               {"IMAP_HOST", "imap.gmail.com"},
                               {"IMAP_PORT", "993"},
                               {"SMTP_HOST", "smtp.gmail.com"},
                               {"SMTP_PORT", "587"},
                               {"HOME", "/home/you"},
                               {"MDA", "/usr/bin/procmail -d %T"},
                               {"CA_FILE", "/etc/ssl/certs/ca-certificates.crt"}};

// The texts between ``` lines, those marked as a console's aside.
std::set<std::string> blocksOfGuide() {
  std::ifstream guide(QVR_GUIDE);
  std::set<std::string> blocks;
  std::string line;
  std::string block;
  bool inside = false;
  bool console = false;
  while (std::getline(guide, line)) {
    if (!line.starts_with("```")) {
      if (inside) block += line + "\n";
      continue;
    }
    if (inside && !console) blocks.insert(block);
    inside = !inside;
    console = line == "```console";
    block.clear();
  }
  return blocks;
}

TEST(GuideTest, ShowsEveryRecipeAndNothingThatWasNotRun) {
  std::set<std::string> recipes;
  for (const std::string& name : recipeNames()) {
    recipes.insert(fillTemplate("recipes/" + name, kReadersValues));
  }
  EXPECT_FALSE(recipes.empty());
  EXPECT_EQ(blocksOfGuide(), recipes);
}

}  // namespace
}  // namespace e2e
