// The fixture of the commands' tests: a command runs in this process, on a keychain in memory, a
// server that answers at once and a clock that stands still; its streams and status are collected.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Token.h"
#include "host/Command.h"
#include "src/platform/World.h"
#include "tests/host/AnsweringSession.h"
#include "tests/host/ScopedVariable.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeKeychain.h"

namespace host_test {

struct Printed {
  int status = -1;
  std::string output;
  std::string error;
};

// Runs the function with both streams collected.
Printed collect(const std::function<int()>& function);

class CommandTest : public testing::Test {
 protected:
  static constexpr const char* kUser = "user@example.org";
  static constexpr double kNow = 700000000;

  CommandTest();
  ~CommandTest() override;

  // Tells the library `configuration` and the fakes, once, before the first command.
  void install();

  Printed runToken(const host::TokenOptions& options);
  Printed runSignOut(const host::Account& account, bool localOnly = false);
  Printed runAccounts(bool asJSON = false);

  // A record made `age` seconds ago.
  static qvr::Ref<QVROAuth2Token> record(qvr::TextView accessToken, qvr::TextView refreshToken,
                                         std::optional<double> expiresIn, double age = 0);
  static void store(const host::Account& account, const qvr::Ref<QVROAuth2Token>& token);

  // The stored bytes; absent when nothing is stored.
  std::optional<qvr::Data> item(const host::Account& account) const;
  void putItem(const host::Account& account, const std::string& bytes) const;

  const host::Account google{"Google", kUser};
  const host::Account microsoft{"Microsoft", kUser};

  support::TemporaryFolder folder;
  const ScopedVariable runtimeFolder{"XDG_RUNTIME_DIR", folder.path()};
  const ScopedVariable dataFolder{"XDG_DATA_HOME", folder.file("data")};
  qvr::ScopedWorld world;
  host::Configuration configuration;
  qvr::Ref<support::FakeKeychain> keychain = qvr::makeRef<support::FakeKeychain>();
  qvr::Ref<AnsweringSession> session = qvr::makeRef<AnsweringSession>();
  std::shared_ptr<std::atomic<double>> clock = std::make_shared<std::atomic<double>>(kNow);
};

}  // namespace host_test
