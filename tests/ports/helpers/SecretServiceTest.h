// A bus, a Secret Service on it and a keychain that speaks to it, of each test's own.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "src/ports/SecretServiceKeychain.h"
#include "tests/ports/helpers/KeychainQueries.h"
#include "tests/support/FakeSecretService.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {

class SecretServiceTest : public testing::Test {
 protected:
  using Keyring = support::FakeKeyring;
  using Reaction = Keyring::Reaction;

  static constexpr const char* kService = "Google.OAuth2Token";

  qvr::SecretServiceOptions options() const {
    qvr::SecretServiceOptions result;
    result.busAddress = bus_.address();
    return result;
  }

  // Deadlines that a test can wait for.
  qvr::SecretServiceOptions impatient() const {
    qvr::SecretServiceOptions result = options();
    result.callTimeoutSeconds = 0.1;
    result.promptTimeoutSeconds = 0.4;
    return result;
  }

  qvr::Ref<qvr::KeychainItems> open(const qvr::SecretServiceOptions& options) const {
    return qvr::makeRef<qvr::SecretServiceKeychain>(options, folder_.file("lock"));
  }

  void reactTo(const std::string& member, Reaction reaction, int times = 1) {
    service_.with([&](Keyring& keyring) { keyring.reactTo(member, reaction, times); });
  }
  void answerWithError(const std::string& member, const std::string& error, int times = 1) {
    service_.with([&](Keyring& keyring) { keyring.error = error; });
    reactTo(member, Reaction::kError, times);
  }
  int countOf(const std::string& member) {
    return service_.with([&](Keyring& keyring) { return keyring.countOf(member); });
  }
  std::size_t itemCount() {
    return service_.with([](Keyring& keyring) { return keyring.items.size(); });
  }

  // Changes the one item there is.
  template <class Change>
  void changeItem(Change change) {
    service_.with([&](Keyring& keyring) { change(keyring.items.begin()->second); });
  }
  void lock() {
    service_.with([](Keyring& keyring) { keyring.isLocked = true; });
  }

  const support::TemporaryFolder folder_;
  support::PrivateBus bus_;
  support::FakeSecretService service_{bus_.address()};
  const qvr::Ref<qvr::KeychainItems> keychain_ = open(options());
  const Item item_{*keychain_, kService};
};

}  // namespace ports_test
