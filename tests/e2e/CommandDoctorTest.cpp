// qvr-oauth2 doctor: what it says when all is well, and of what is not.

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/e2e/CommandTest.h"
#include "tests/support/FakeSecretService.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TLSFront.h"

namespace e2e {
namespace {

using support::TLSFront;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// The deadlines of doctor's own make it end within 10 s when nothing answers; the rest is for a
// machine that is busy.
constexpr double kLongestSeconds = 20;

// An HTTP date (RFC 9110 section 5.6.7), so many seconds from now.
std::string dateFromNow(std::time_t seconds) {
  const std::time_t time = std::time(nullptr) + seconds;
  struct tm parts = {};
  gmtime_r(&time, &parts);
  char text[64];
  return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

class CommandDoctorTest : public CommandTest {
 protected:
  std::string configurationPath() const { return folder.file("config/qvr-oauth2/config.toml"); }

  // A configuration for Microsoft at the host.
  void useHost(const std::string& host, const std::string& authorityFile = "") {
    folder.write("config/qvr-oauth2/config.toml",
                 "bundle_identifier = \"org.example.mail\"\n[microsoft]\napplication_identifier = "
                 "\"01234567-89ab-cdef-0123-456789abcdef\"\n[endpoints]\nmicrosoft_login_host = "
                 "\"" +
                     host + "\"\ncertificate_authority_file = \"" + authorityFile + "\"\n");
  }

  // Doctor, where no desktop session can be met, within its time.
  Result runDoctor(std::vector<std::string> options = {}) {
    options.insert(options.begin(), "doctor");
    const auto process =
        start(options, {{"DBUS_SESSION_BUS_ADDRESS", busAddress}, {"DISPLAY", display}});
    process->closeInput();
    const int status = process->wait(kLongestSeconds);
    EXPECT_NE(status, -1) << "doctor hangs";
    EXPECT_EQ(process->error(), "") << "the findings are the output";
    return {status, process->output(), process->error()};
  }

  // The line, with its remedy, that begins so.
  static std::string lineOf(const Result& result, const std::string& start) {
    const std::string text = "\n" + result.output;
    const std::size_t at = text.find("\n" + start);
    if (at == std::string::npos) return "";
    std::size_t end = text.find('\n', at + 1);
    if (text.compare(end + 1, 1, " ") == 0) end = text.find('\n', end + 1);
    return text.substr(at + 1, end - at - 1);
  }

  static std::string hostOf(const TLSFront& front) {
    const std::string url = front.url("");
    return url.substr(url.find("//") + 2);
  }

  std::string busAddress = "unix:path=" + folder.file("no-bus");
  std::string display{};

  // All files below the user's folders, with what is in them. The lock that goes with the keyring
  // lies in the runtime folder and stays: somebody else may be about to take it.
  std::vector<std::string> everything() const {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
      const std::string path = entry.path();
      if (path.starts_with(folder.file("run/qvr-oauth2-secret-service"))) continue;
      std::ifstream file(entry.is_regular_file() ? path : "/dev/null");
      paths.push_back(path + ": " + std::string(std::istreambuf_iterator<char>(file), {}));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  }
};

TEST_F(CommandDoctorTest, FindsNoProblemAndChangesNothing) {
  const auto before = everything();
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  for (const char* const name :
       {"configuration", "registrations", "keychain", "runtime folder", "clock", "file modes"})
    EXPECT_NE(lineOf(result, "ok       " + std::string(name) + ": "), "") << name << result.output;
  for (const char* const side : {"google", "microsoft"}) {
    const std::string host = counterpart.ready(side, "host");
    EXPECT_NE(lineOf(result, "ok       TLS to " + host + ": "), "") << result.output;
  }
  EXPECT_THAT(result.output, Not(HasSubstr(counterpart.ready("google", "clientSecret"))));
  EXPECT_THAT(result.output, Not(HasSubstr("problem")));
  EXPECT_EQ(everything(), before);
}

TEST_F(CommandDoctorTest, SaysHowToSignInWithoutADesktop) {
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(lineOf(result, "warning  browser: "), HasSubstr("sign-in --no-browser"));
  EXPECT_THAT(lineOf(result, "warning  redirect handler: "), HasSubstr("qvr-oauth2 register"));
  EXPECT_THAT(lineOf(result, "warning  session bus: "), HasSubstr("runtime folder"));
}

TEST_F(CommandDoctorTest, PrintsJSONAndNothingElse) {
  const Result result = runDoctor({"--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output,
              AllOf(StartsWith("{\"checks\":[{\"name\":\"configuration\",\"state\":\"ok\","),
                    testing::EndsWith("],\"problems\":0}\n")));
}

TEST_F(CommandDoctorTest, NamesAMissingConfigurationAndGoesOn) {
  std::filesystem::remove(configurationPath());
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(lineOf(result, "problem  configuration: "), HasSubstr("config`"));
  EXPECT_NE(lineOf(result, "ok       runtime folder: "), "");
  EXPECT_THAT(lineOf(result, "warning  keychain: "), HasSubstr("Could not be checked"));
  EXPECT_THAT(runDoctor({"--json"}).output, HasSubstr("\"problems\":1}"));
}

TEST_F(CommandDoctorTest, MissesARegistrationAndSaysWhatNeedsIt) {
  folder.write("config/qvr-oauth2/config.toml", "bundle_identifier = \"org.example.mail\"\n");
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(lineOf(result, "problem  registrations: "), "") << result.output;
  for (const char* const name : {"redirect handler", "TLS", "clock"})
    EXPECT_THAT(lineOf(result, "warning  " + std::string(name) + ": "),
                HasSubstr("Could not be checked: it needs a registration."))
        << result.output;
}

TEST_F(CommandDoctorTest, NamesAnAuthorityThatDidNotIssueTheCertificate) {
  const support::TestCertificates others;
  const std::string host = counterpart.ready("microsoft", "host");
  useHost(host, others.authorityFile());
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(lineOf(result, "problem  TLS to " + host + ": "),
              HasSubstr("certificate_authority_file"));
  EXPECT_THAT(lineOf(result, "warning  clock: "), HasSubstr("Could not be checked"));
}

TEST_F(CommandDoctorTest, NamesAnAuthorityFileThatIsNotThere) {
  useHost("localhost:1", folder.file("none.pem"));
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(lineOf(result, "problem  TLS: "), HasSubstr(folder.file("none.pem")));
}

TEST_F(CommandDoctorTest, CouldNotCheckAServerThatIsDown) {
  useHost("127.0.0.1:1");
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(lineOf(result, "warning  TLS to 127.0.0.1:1: "), HasSubstr("Could not be checked"));
  EXPECT_THAT(lineOf(result, "warning  clock: "), HasSubstr("Could not be checked"));
}

TEST_F(CommandDoctorTest, CouldNotCheckAServerWithoutAnAddress) {
  useHost("no-such-host.invalid");
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(lineOf(result, "warning  TLS to no-such-host.invalid: "),
              HasSubstr("Could not be checked"));
}

TEST_F(CommandDoctorTest, WaitsForASilentServerNoLongerThanItsDeadline) {
  support::LoopbackServer silent(support::rawAnswer("", support::Afterwards::kHang));
  const support::TestCertificates certificates;
  const TLSFront front(silent, certificates.valid());
  useHost(hostOf(front), certificates.authorityFile());
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(lineOf(result, "warning  TLS to " + hostOf(front) + ": "),
              HasSubstr("did not answer in time"));
}

TEST_F(CommandDoctorTest, NamesASkewOfTheClockWithItsSign) {
  const support::TestCertificates certificates;
  const struct {
    std::time_t serverIsLater;
    const char* sentence;
  } cases[] = {{3600, " s behind the server's"}, {-3600, " s ahead of the server's"}};
  for (const auto& each : cases) {
    support::LoopbackServer server(
        support::answer(404, "", {{"Date", dateFromNow(each.serverIsLater)}}));
    const TLSFront front(server, certificates.valid());
    useHost(hostOf(front), certificates.authorityFile());
    const Result result = runDoctor();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(lineOf(result, "problem  clock: "),
                AllOf(HasSubstr(each.sentence), HasSubstr("timedatectl")));
    EXPECT_NE(lineOf(result, "ok       TLS to "), "");
  }
}

TEST_F(CommandDoctorTest, NamesAConfigurationWhoseSecretOthersCanRead) {
  chmod(configurationPath().c_str(), 0644);
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(lineOf(result, "problem  file modes: "),
              HasSubstr("`chmod 600 " + configurationPath() + "`"));
}

class CommandDoctorPassphraseTest : public CommandDoctorTest {
 protected:
  static constexpr const char* kPassphrase = "correct horse";

  CommandDoctorPassphraseTest() {
    const std::string items = folder.file("items");
    const auto files = qvr::makeEncryptedFileKeychain({items, "", kPassphrase});
    EXPECT_EQ(files->add({{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
                          {std::string(qvr::kSecAttrService), "service"},
                          {std::string(qvr::kSecAttrAccount), "account"},
                          {std::string(qvr::kSecValueData), qvr::Data{1}}}),
              0);
    useHost("127.0.0.1:1");
    std::ofstream(configurationPath(), std::ios::app)
        << "[keychain]\nkind = \"encrypted-file\"\nprotection = \"passphrase\"\ndirectory = \""
        << items << "\"\n";
  }

  // Doctor in a session without a terminal, with the words at the end of its command line.
  std::string runWithoutTerminal(const std::string& words) {
    const std::string script = "exec setsid --wait '" QVR_OAUTH2_PROGRAM "' --config '" +
                               configurationPath() + "' doctor " + words;
    support::ChildProcess child(
        {{"/bin/sh", "-c", script},
         {{"XDG_RUNTIME_DIR", folder.file("run")}, {"DBUS_SESSION_BUS_ADDRESS", busAddress}}});
    child.closeInput();
    EXPECT_EQ(child.wait(kLongestSeconds), 0) << child.output();
    EXPECT_THAT(child.output(), Not(HasSubstr(kPassphrase)));
    return child.output();
  }
};

TEST_F(CommandDoctorPassphraseTest, IsNotAskedForWithoutATerminal) {
  EXPECT_THAT(runWithoutTerminal(""),
              HasSubstr("warning  keychain: Could not be checked: it is sealed"));
}

TEST_F(CommandDoctorPassphraseTest, IsTakenFromADescriptor) {
  const std::string file = folder.write("passphrase", kPassphrase + std::string("\n"));
  EXPECT_THAT(runWithoutTerminal("--passphrase-fd 3 3<'" + file + "'"),
              HasSubstr("ok       keychain: Chosen: the encrypted files"));
}

TEST_F(CommandDoctorPassphraseTest, IsWaitedForAfterWhatIsKnownHasBeenSaid) {
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::ofstream(configurationPath(), std::ios::app)
      << "passphrase_command = \"cat '" << pipe << "'\"\n";
  const auto process = start({"doctor"}, {{"DBUS_SESSION_BUS_ADDRESS", busAddress}});
  EXPECT_TRUE(process->waitForOutput("browser: ")) << process->output();
  EXPECT_THAT(process->output(), Not(HasSubstr("keychain: ")));
  std::ofstream(pipe) << kPassphrase << "\n";
  EXPECT_EQ(process->wait(kLongestSeconds), 0) << process->output();
  EXPECT_THAT(process->output(), HasSubstr("ok       keychain: Chosen: the encrypted files"));
}

TEST_F(CommandDoctorTest, TriesTheKeyringThatWouldBeChosenAndChoosesNothing) {
  const support::PrivateBus bus;
  support::FakeSecretService keyring(bus.address());
  busAddress = bus.address();
  const auto before = everything();
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(lineOf(result, "ok       keychain: "), HasSubstr("would be: the desktop's keyring"));
  EXPECT_NE(lineOf(result, "ok       session bus: "), "") << result.output;
  keyring.with([](const support::FakeKeyring& ring) {
    EXPECT_EQ(ring.countOf("CreateItem"), 1);
    EXPECT_TRUE(ring.items.empty());
  });
  EXPECT_EQ(everything(), before);
}

TEST_F(CommandDoctorTest, NamesALockedKeyringAndAsksNobodyToUnlockIt) {
  const support::PrivateBus bus;
  support::FakeSecretService keyring(bus.address());
  keyring.with([](support::FakeKeyring& ring) { ring.isLocked = true; });
  busAddress = bus.address();
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(lineOf(result, "warning  keychain: "), HasSubstr("locked"));
  keyring.with([](const support::FakeKeyring& ring) {
    EXPECT_EQ(ring.countOf("Unlock"), 0);
    EXPECT_EQ(ring.countOf("Prompt"), 0);
  });
}

TEST_F(CommandDoctorTest, SaysThatTheKeyringAsksAndNamesTheItemThatStays) {
  const support::PrivateBus bus;
  support::FakeSecretService keyring(bus.address());
  keyring.with([](support::FakeKeyring& ring) {
    ring.promptsToDelete = true;
    ring.prompt = support::FakeKeyring::Prompt::kWaits;
  });
  for (const bool isAllowed : {true, false}) {
    const auto process = start({"doctor"}, {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}});
    ASSERT_TRUE(process->waitForError("The desktop's keyring asks a question")) << process->error();
    EXPECT_THAT(process->error(), HasSubstr("Waiting up to 20 s"));
    keyring.answerPrompt(isAllowed);
    EXPECT_EQ(process->wait(kLongestSeconds), isAllowed ? 0 : 1);
    const auto items = keyring.with([](const support::FakeKeyring& ring) { return ring.items; });
    EXPECT_EQ(items.empty(), isAllowed);
    if (isAllowed) continue;
    const auto& attributes = items.begin()->second.attributes;
    EXPECT_THAT(lineOf({1, process->output(), ""}, "problem  keychain: "),
                AllOf(HasSubstr("could not be removed"), HasSubstr(attributes.at("service")),
                      HasSubstr(attributes.at("account"))));
  }
}

TEST_F(CommandDoctorTest, MissesTheHandlerOnADesktopUntilItIsRegistered) {
  display = ":99";
  const Result before = runDoctor();
  EXPECT_EQ(before.status, 1);
  EXPECT_THAT(lineOf(before, "problem  redirect handler: "), HasSubstr("`qvr-oauth2 register`"));
  const Result registering = run({"register"}, {{"DBUS_SESSION_BUS_ADDRESS", busAddress}});
  ASSERT_EQ(registering.status, 0) << registering.error;
  const Result after = runDoctor();
  EXPECT_EQ(after.status, 0) << after.output;
  EXPECT_NE(lineOf(after, "ok       redirect handler: "), "");
  EXPECT_EQ(lineOf(after, "problem  redirect handler: "), "");
}

TEST_F(CommandDoctorTest, WaitsForNobodyWhenNothingAnswers) {
  const support::SilentBus bus;
  busAddress = bus.address();
  support::LoopbackServer server(support::rawAnswer("", support::Afterwards::kHang));
  const support::TestCertificates certificates;
  const TLSFront front(server, certificates.valid());
  useHost(hostOf(front), certificates.authorityFile());
  const Result result = runDoctor();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_NE(lineOf(result, "warning  session bus: "), "") << result.output;
  EXPECT_NE(lineOf(result, "warning  TLS to "), "") << result.output;
}

}  // namespace
}  // namespace e2e
