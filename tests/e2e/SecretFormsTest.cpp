// That the search of SecretForms.h finds what is planted, and nothing else.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/e2e/SecretForms.h"
#include "tests/e2e/SecretWatch.h"
#include "tests/support/ChildProcess.h"

namespace e2e {
namespace {

// With all that an encoding changes.
constexpr const char* kSecret = "4/0AbC+d=e f~g%h?&1//xyzÄ-_.tail";

const std::string kAround = R"(qvr-oauth2: Google refused: {"a":"b"}. %zz 100% )";

SecretForms searchFor(const std::string& text) {
  SecretForms forms;
  forms.add({"refresh_token", text});
  return forms;
}

bool isFound(const std::string& text, const std::string& form) {
  for (const SecretForms::Find& find : searchFor(kSecret).findIn(text)) {
    if (find.form == form) return find.kind == "refresh_token";
  }
  return false;
}

std::string percentEncoded(const std::string& text, const char* digits) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += {'%', digits[byte >> 4], digits[byte & 15]};
  }
  return result;
}

std::string outputOf(const std::string& script, const std::string& input) {
  support::ChildProcess process({{"/bin/sh", "-c", script}, {}});
  process.writeInput(input);
  process.closeInput();
  EXPECT_EQ(process.wait(), 0) << process.error();
  return process.output();
}

TEST(SecretForms, EachFormIsFoundBetweenOtherText) {
  for (const auto& [name, form] : formsOf(kSecret)) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(searchFor(kSecret).findIn(kAround + form + kAround).empty());
  }
}

TEST(SecretForms, NothingIsFoundWhereThereIsNothing) {
  EXPECT_TRUE(searchFor(kSecret).findIn("").empty());
  EXPECT_TRUE(searchFor(kSecret).findIn(kAround + kAround).empty());
  EXPECT_TRUE(searchFor(kSecret).findIn(std::string(kSecret).substr(0, 11)).empty());
}

TEST(SecretForms, PercentEncodedTwiceOrInPartIsFound) {
  const std::string secret = kSecret;
  const std::string once = percentEncoded(secret, "0123456789ABCDEF");
  EXPECT_TRUE(isFound(kAround + once, "raw"));
  EXPECT_TRUE(isFound(kAround + percentEncoded(secret, "0123456789abcdef"), "raw"));
  EXPECT_TRUE(isFound(percentEncoded(once, "0123456789abcdef"), "raw"));
  EXPECT_TRUE(isFound(once.substr(0, 30) + secret.substr(10), "raw"));
}

TEST(SecretForms, APieceOfASecretIsFound) {
  const std::string secret = kSecret;
  for (std::size_t start = 0; start + SecretForms::kWindow <= secret.size(); ++start)
    EXPECT_TRUE(isFound("x" + secret.substr(start, SecretForms::kWindow) + "...", "raw")) << start;
}

TEST(SecretForms, WhatOtherProgramsEncodeIsFound) {
  for (const char* const before : {"", "1", "12", "user=someone\001auth=Bearer "}) {
    const std::string text = before + std::string(kSecret) + "\001\001";
    for (const char* const program :
         {"base64 --wrap=0", "basenc --base64url --wrap=0", "basenc --base16 --wrap=0",
          "od -An -v -tx1 | tr -d ' \\n'"}) {
      SCOPED_TRACE(before + std::string(program));
      EXPECT_FALSE(searchFor(kSecret).findIn(outputOf(program, text)).empty());
    }
  }
}

TEST(SecretForms, WhatIsToBeIgnoredIsNoFind) {
  SecretForms forms;
  forms.add({"id_token", "{\"email\":\"alice@example.com\",\"nonce\":\"0123456789abcdef\"}"});
  forms.ignore("alice@example.com");
  EXPECT_TRUE(forms.findIn("user=alice@example.com").empty());
  EXPECT_FALSE(forms.findIn("the nonce 0123456789abcdef").empty());
}

TEST(SecretForms, WhatIsTooShortToBeSearchedForIsRefused) {
  EXPECT_THROW(searchFor("too short"), std::invalid_argument);
}

TEST(SecretWatch, ProgramsAreSeenHoweverShortTheyLive) {
  const support::TemporaryFolder folder;
  SecretWatch watch(folder.file("watch"));
  const std::string script =
      "(setsid env 'LEAK=in \"the\" environment\t\303\204' /bin/true 'an\narg' &) ; exit 7";
  support::ChildProcess process({watch.wrapped({"/bin/sh", "-c", script}), {}});
  EXPECT_EQ(process.wait(), 7);
  const std::vector<Execution> executions = watch.finish();
  ASSERT_FALSE(executions.empty());
  EXPECT_EQ(executions.front().path, "/bin/sh");
  EXPECT_THAT(executions.front().arguments, testing::ElementsAre("/bin/sh", "-c", script));
  const Execution& last = executions.back();
  EXPECT_THAT(last.arguments, testing::ElementsAre("/bin/true", "an\narg"));
  EXPECT_THAT(last.environment, testing::Contains("LEAK=in \"the\" environment\t\303\204"));
  EXPECT_NE(last.process, executions.front().process);
}

}  // namespace
}  // namespace e2e
