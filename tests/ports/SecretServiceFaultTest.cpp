// A bus or a service that is missing, ends or does not answer.

#include <filesystem>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/SecretServiceTest.h"

namespace ports_test {
namespace {

using Kind = qvr::SecretServiceState::Kind;
using std::chrono::steady_clock;

class SecretServiceFaultTest : public SecretServiceTest {
 protected:
  void expectNotAvailable(const qvr::Ref<qvr::KeychainItems>& keychain) const {
    const Item item{*keychain, kService};
    qvr::Data data = bytes("untouched");
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(item.read(&data), qvr::errSecNotAvailable);
    EXPECT_EQ(item.probe(), qvr::errSecNotAvailable);
    EXPECT_EQ(item.add("x"), qvr::errSecNotAvailable);
    EXPECT_EQ(item.update("x"), qvr::errSecNotAvailable);
    EXPECT_EQ(item.remove(), qvr::errSecNotAvailable);
    EXPECT_EQ(keychain->list(&names), qvr::errSecNotAvailable);
    EXPECT_EQ(data, bytes("untouched"));
  }

  void expectState(const qvr::SecretServiceOptions& options, Kind kind,
                   const std::string& reason) const {
    const qvr::SecretServiceState state = qvr::examineSecretService(options);
    EXPECT_EQ(state.kind, kind);
    EXPECT_EQ(state.reason, reason);
  }
};

TEST_F(SecretServiceFaultTest, NoBusIsNotAvailable) {
  qvr::SecretServiceOptions nowhere = options();
  nowhere.busAddress = "unix:path=" + folder_.file("no-bus");
  expectNotAvailable(open(nowhere));
  expectState(nowhere, Kind::kAbsent, "There is no D-Bus session: No such file or directory.");
}

// The program is built with D-Bus, and finds what is no library where libsystemd should be.
TEST_F(SecretServiceFaultTest, MachineWithoutLibsystemdIsNotAvailable) {
  folder_.write("libsystemd.so.0", "none");
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  support::ChildProcess::Options writer;
  writer.arguments = {self.parent_path() / "keychain_writer", "add-to-secret-service",
                      bus_.address(), kService, "secret"};
  writer.environment = {{"LD_LIBRARY_PATH", folder_.path()}};
  support::ChildProcess process(writer);
  process.closeInput();
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.output(), "-25291");
  EXPECT_EQ(countOf("OpenSession"), 0);
}

TEST_F(SecretServiceFaultTest, BusWithoutAServiceIsNotAvailable) {
  service_.leave();
  expectNotAvailable(keychain_);
  expectState(options(), Kind::kAbsent, "No Secret Service answers on the D-Bus session.");
}

TEST_F(SecretServiceFaultTest, ServiceThatAppearsLaterIsFound) {
  service_.leave();
  EXPECT_EQ(item_.add("secret"), qvr::errSecNotAvailable);
  service_.restart();
  EXPECT_EQ(item_.add("secret"), qvr::errSecSuccess);
}

TEST_F(SecretServiceFaultTest, SilentBusIsGivenUpAtTheDeadline) {
  const support::SilentBus silent;
  qvr::SecretServiceOptions waiting = impatient();
  waiting.busAddress = silent.address();
  const auto started = steady_clock::now();
  expectNotAvailable(open(waiting));
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(10));
  expectState(waiting, Kind::kAbsent, "The D-Bus session does not answer.");
}

TEST_F(SecretServiceFaultTest, SilentServiceIsGivenUpAtTheDeadline) {
  for (const char* member : {"OpenSession", "Locked", "SearchItems", "CreateItem"}) {
    reactTo(member, Reaction::kSilence);
    const auto keychain = open(impatient());
    EXPECT_EQ((Item{*keychain, kService}.add("secret")), qvr::errSecNotAvailable) << member;
  }
  reactTo("OpenSession", Reaction::kSilence);
  expectState(impatient(), Kind::kAbsent, "The Secret Service does not answer.");
}

TEST_F(SecretServiceFaultTest, ServiceRestartedBetweenTwoCallsIsFoundAgain) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.restart();
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(countOf("OpenSession"), 2);
}

TEST_F(SecretServiceFaultTest, ServiceGoneBetweenTwoCallsIsNotAvailable) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  service_.leave();
  EXPECT_EQ(item_.text(), "status -25291");
  expectNotAvailable(keychain_);
}

TEST_F(SecretServiceFaultTest, BusRestartedBetweenTwoCallsIsFoundAgain) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  bus_.crash();
  EXPECT_EQ(item_.text(), "status -25291");
  bus_.restart();
  service_.restart();
  EXPECT_EQ(item_.text(), "secret");
  bus_.crash();
  bus_.restart();
  service_.restart();
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceFaultTest, ServiceThatEndsInTheMiddleOfACallIsTriedOnceMore) {
  for (const char* member : {"Locked", "SearchItems", "CreateItem", "GetSecret"}) {
    reactTo(member, Reaction::kReplace);
    EXPECT_EQ(item_.add("secret"), qvr::errSecSuccess) << member;
    EXPECT_EQ(item_.text(), "secret");
    ASSERT_EQ(item_.remove(), qvr::errSecSuccess);
  }
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  reactTo("SetSecret", Reaction::kReplace);
  EXPECT_EQ(item_.update("another"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "another");
  reactTo("Delete", Reaction::kReplace);
  EXPECT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceFaultTest, ServiceThatEndsTwiceInACallIsNotAvailable) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  reactTo("GetSecret", Reaction::kReplace, 2);
  EXPECT_EQ(item_.text(), "status -25291");
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServiceFaultTest, ServiceThatEndsForGoodInTheMiddleOfACallIsNotAvailable) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  reactTo("GetSecret", Reaction::kDie);
  EXPECT_EQ(item_.text(), "status -25291");
}

TEST_F(SecretServiceFaultTest, WriteThatWasDoneBeforeTheServiceEndedIsASuccess) {
  reactTo("CreateItem", Reaction::kReplaceWhenDone);
  EXPECT_EQ(item_.add("secret"), qvr::errSecSuccess);
  EXPECT_EQ(itemCount(), 1u);
  reactTo("SetSecret", Reaction::kReplaceWhenDone);
  EXPECT_EQ(item_.update("another"), qvr::errSecSuccess);
  EXPECT_EQ(item_.text(), "another");
  reactTo("Delete", Reaction::kReplaceWhenDone);
  EXPECT_EQ(item_.remove(), qvr::errSecSuccess);
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceFaultTest, ForgottenSessionIsOpenedAgain) {
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  answerWithError("GetSecret", "org.freedesktop.Secret.Error.NoSession");
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(countOf("OpenSession"), 2);
}

TEST_F(SecretServiceFaultTest, MissingDefaultKeyringIsNotAvailable) {
  service_.with([](Keyring& keyring) { keyring.hasDefault = false; });
  expectNotAvailable(keychain_);
  expectState(options(), Kind::kAbsent, "The Secret Service has no default keyring.");
  EXPECT_EQ(itemCount(), 0u);
}

TEST_F(SecretServiceFaultTest, LockedDefaultKeyringWithoutANameIsNotAvailable) {
  lock();
  service_.with([](Keyring& keyring) {
    keyring.onCall = [](Keyring& self, const std::string& member) {
      if (member == "ReadAlias") self.hasDefault = false;
      return Reaction::kServe;
    };
  });
  EXPECT_EQ(item_.add("secret"), qvr::errSecNotAvailable);
}

TEST_F(SecretServiceFaultTest, ErrorsMeanWhatTheCallWasAbout) {
  struct Case {
    const char* member;
    const char* error;
    std::int32_t status;
  };
  const Case cases[] = {
      {"OpenSession", "org.freedesktop.DBus.Error.TimedOut", qvr::errSecNotAvailable},
      {"OpenSession", "org.freedesktop.DBus.Error.Spawn.ChildExited", qvr::errSecNotAvailable},
      {"OpenSession", "org.freedesktop.DBus.Error.NotSupported", qvr::errSecNotAvailable},
      {"Locked", "org.freedesktop.DBus.Error.UnknownMethod", qvr::errSecNotAvailable},
      {"Locked", "org.freedesktop.Secret.Error.NoSuchObject", qvr::errSecNotAvailable},
      {"SearchItems", "org.freedesktop.DBus.Error.Failed", qvr::errSecIO},
      {"SearchItems", "org.freedesktop.DBus.Error.AccessDenied", qvr::errSecWrPerm},
      {"SearchItems", "org.freedesktop.DBus.Error.UnknownMethod", qvr::errSecIO},
      {"GetSecret", "org.freedesktop.DBus.Error.UnknownMethod", qvr::errSecItemNotFound},
      {"GetSecret", "org.freedesktop.Secret.Error.NoSuchObject", qvr::errSecItemNotFound},
      {"GetSecret", "org.freedesktop.Secret.Error.IsLocked", qvr::errSecInteractionNotAllowed},
      {"GetSecret", "org.freedesktop.DBus.Error.TimedOut", qvr::errSecIO},
  };
  ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
  for (const Case& one : cases) {
    answerWithError(one.member, one.error);
    const auto keychain = open(options());
    qvr::Data data;
    EXPECT_EQ((Item{*keychain, kService}.read(&data)), one.status) << one.member << one.error;
  }
}

TEST_F(SecretServiceFaultTest, ExaminingTellsReadyFromLockedAndChangesNothing) {
  expectState(options(), Kind::kReady, "");
  lock();
  expectState(options(), Kind::kLocked, "The default keyring is locked.");
  const std::vector<std::string> calls = {"OpenSession", "Locked", "OpenSession", "Locked"};
  EXPECT_EQ(service_.with([](Keyring& keyring) { return keyring.calls; }), calls);
}

TEST_F(SecretServiceFaultTest, ServiceThatTheBusCannotStartIsNotAvailable) {
  const support::TemporaryFolder services;
  services.write("broken.service",
                 "[D-BUS Service]\nName=org.freedesktop.secrets\nExec=/bin/false\n");
  const support::PrivateBus starting(services.path());
  qvr::SecretServiceOptions other = options();
  other.busAddress = starting.address();
  expectNotAvailable(open(other));
  expectState(other, Kind::kAbsent, "No Secret Service answers on the D-Bus session.");
}

}  // namespace
}  // namespace ports_test
