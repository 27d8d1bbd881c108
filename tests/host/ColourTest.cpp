// Who gets colour, and who gets none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>

#include "host/Colour.h"
#include "host/ExitStatus.h"
#include "host/Progress.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/SignInFixture.h"
#include "tests/host/TerminalProcess.h"

namespace host_test {
namespace {

using host::Colour;
using host::coloured;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ColourTest : public testing::Test {
 protected:
  ColourTest() {
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    screen = host::Descriptor(master);
    terminal = host::Descriptor(slave);
  }

  const ScopedVariable kind{"TERM", "xterm"};
  const ScopedVariable wish{"NO_COLOR", ""};
  host::Descriptor screen;
  host::Descriptor terminal;
};

TEST_F(ColourTest, IsForTerminals) {
  EXPECT_EQ(coloured(Colour::kGreen, "ok", terminal.number()), "\x1b[32mok\x1b[0m");
  EXPECT_EQ(coloured(Colour::kYellow, "warning", terminal.number()), "\x1b[33mwarning\x1b[0m");
  EXPECT_EQ(coloured(Colour::kRed, "problem", terminal.number()), "\x1b[31mproblem\x1b[0m");
}

TEST_F(ColourTest, IsNotForNothing) {
  EXPECT_EQ(coloured(Colour::kYellow, "", terminal.number()), "");
}

TEST_F(ColourTest, IsNotForAFileOrAPipe) {
  const host::Pipe pipe;
  EXPECT_EQ(coloured(Colour::kRed, "problem", pipe.writeEnd.number()), "problem");
  EXPECT_EQ(coloured(Colour::kRed, "problem", -1), "problem");
}

TEST_F(ColourTest, IsNotForWhoSaysSo) {
  for (const char* const value : {"1", "0", "no"}) {
    const ScopedVariable noColour("NO_COLOR", value);
    EXPECT_EQ(coloured(Colour::kRed, "problem", terminal.number()), "problem") << value;
  }
}

TEST_F(ColourTest, IsNotForATerminalThatIsDumb) {
  const ScopedVariable dumb("TERM", "dumb");
  EXPECT_EQ(coloured(Colour::kRed, "problem", terminal.number()), "problem");
  EXPECT_FALSE(host::canDraw(terminal.number()));
  EXPECT_FALSE(host::ProgressLine(terminal.number()).isVisible());
}

TEST_F(ColourTest, ProgressIsDrawnForWhoWantsNoColour) {
  const ScopedVariable noColour("NO_COLOR", "1");
  EXPECT_TRUE(host::canDraw(terminal.number()));
  EXPECT_TRUE(host::ProgressLine(terminal.number()).isVisible());
}

// `doctor` without a configuration, which is a problem.
class ColourOfDoctor : public testing::Test {
 protected:
  std::string onTerminal(std::map<std::string, std::string> environment,
                         const std::vector<std::string>& options = {}) {
    environment.merge(folders());
    TerminalProcess child(command(options), environment);
    EXPECT_EQ(child.wait(), host::kFailed);
    return child.shown();
  }

  std::vector<std::string> command(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> all = {QVR_OAUTH2_PROGRAM, "--config", folder.file("none.toml"),
                                    "doctor"};
    all.insert(all.end(), options.begin(), options.end());
    return all;
  }

  std::map<std::string, std::string> folders() const {
    return {{"XDG_RUNTIME_DIR", folder.path()}, {"HOME", folder.path()}};
  }

  const support::TemporaryFolder folder;
};

TEST_F(ColourOfDoctor, IsThatOfTheStateAndOfNothingElse) {
  const std::string shown = onTerminal({{"TERM", "xterm"}, {"NO_COLOR", ""}});
  EXPECT_THAT(shown, AllOf(HasSubstr("\x1b[31mproblem\x1b[0m  configuration: There is no"),
                           HasSubstr("\x1b[33mwarning\x1b[0m  keychain: "),
                           HasSubstr("\x1b[32mok\x1b[0m       runtime folder: ")));
}

TEST_F(ColourOfDoctor, IsMissingWhereNobodyWantsIt) {
  EXPECT_THAT(onTerminal({{"TERM", "xterm"}, {"NO_COLOR", "1"}}),
              AllOf(HasSubstr("problem  configuration: "), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(onTerminal({{"TERM", "dumb"}, {"NO_COLOR", ""}}),
              AllOf(HasSubstr("problem  configuration: "), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(onTerminal({{"TERM", "xterm"}, {"NO_COLOR", ""}}, {"--json"}),
              AllOf(HasSubstr("\"state\":\"problem\""), Not(HasSubstr("\x1b"))));
  std::map<std::string, std::string> environment = {{"TERM", "xterm"}, {"NO_COLOR", ""}};
  environment.merge(folders());
  support::ChildProcess child({command(), environment});
  EXPECT_EQ(child.wait(), host::kFailed);
  EXPECT_THAT(child.output() + child.error(),
              AllOf(HasSubstr("problem  configuration: "), Not(HasSubstr("\x1b"))));
}

TEST_F(ColourOfDoctor, FailureAndWarningOfACommandAreColouredWhereTheyBegin) {
  folder.write("config.toml", "bundle_identifier = \"org.example.mail\"\nunheard_of = 1\n");
  TerminalProcess child({QVR_OAUTH2_PROGRAM, "--config", folder.file("config.toml"), "register"},
                        {{"TERM", "xterm"}, {"NO_COLOR", ""}, {"HOME", folder.path()}});
  EXPECT_EQ(child.wait(), host::kFailed);
  EXPECT_THAT(child.shown(), AllOf(HasSubstr("qvr-oauth2: \x1b[33mwarning:\x1b[0m "),
                                   HasSubstr("\x1b[31mqvr-oauth2:\x1b[0m The configuration ")));
}

}  // namespace
}  // namespace host_test
