#include "tests/host/CommandTest.h"

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "host/Record.h"
#include "host/Setup.h"
#include "host/Wait.h"

namespace host_test {

namespace {

// Waits until the queue has run everything that it was given so far.
void drain(qvr::Executor& queue) {
  const host::Outcome<bool> reached;
  queue.async([reached] { reached.deliver(true); });
  EXPECT_TRUE(reached.wait(30));
}

std::string serviceOf(const host::Account& account) {
  return QVROAuth2Keychain::serviceNameForService(account.provider);
}

}  // namespace

Printed collect(const std::function<int()>& function) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Printed printed;
  printed.status = function();
  printed.output = testing::internal::GetCapturedStdout();
  printed.error = testing::internal::GetCapturedStderr();
  return printed;
}

CommandTest::CommandTest() {
  configuration.path = host::defaultConfigurationPath().value_or("config.toml");
  configuration.bundleIdentifier = "org.example.mail";
  configuration.google = {"example-client", "", "com.example.mail"};
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  configuration.endpoints = {"google.test", "token.google.test", "login.microsoft.test", ""};
}

CommandTest::~CommandTest() {
  // A handler that has told the command everything may still be on its way out.
  drain(*QVROAuth2Keychain::queue());
  drain(*QVROAuth2Keychain::defaultOAuth2Keychain()->delegateQueue());
  drain(*session->callbackQueue());
}

void CommandTest::install() {
  const auto failure = host::installHost(
      configuration, {session, keychain, nullptr, [now = clock] { return qvr::Date{*now}; }});
  ASSERT_FALSE(failure) << failure->sentence;
}

Printed CommandTest::runToken(const host::TokenOptions& options) {
  return collect([&] { return host::token(configuration, options); });
}

Printed CommandTest::runSignOut(const host::Account& account, bool localOnly) {
  return collect([&] { return host::signOut(configuration, account, localOnly); });
}

Printed CommandTest::runAccounts(bool asJSON) {
  return collect([&] { return host::accounts(configuration, asJSON); });
}

qvr::Ref<QVROAuth2Token> CommandTest::record(qvr::TextView accessToken, qvr::TextView refreshToken,
                                             std::optional<double> expiresIn, double age) {
  return QVROAuth2Token::initWithAccessToken(accessToken, "Bearer", expiresIn, refreshToken,
                                             qvr::TextSet{"mail"}, qvr::Date{kNow - age});
}

void CommandTest::store(const host::Account& account, const qvr::Ref<QVROAuth2Token>& token) {
  const qvr::ErrorPtr error = host::storeRecord(account, token);
  ASSERT_FALSE(error) << error->description();
}

std::optional<qvr::Data> CommandTest::item(const host::Account& account) const {
  return keychain->stored(serviceOf(account), account.username);
}

void CommandTest::putItem(const host::Account& account, const std::string& bytes) const {
  keychain->put(serviceOf(account), account.username, qvr::Data(bytes.begin(), bytes.end()));
}

}  // namespace host_test
