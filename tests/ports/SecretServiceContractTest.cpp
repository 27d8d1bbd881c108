// The Secret Service keychain among the ports that keep the keychain's contract.

#include "src/ports/SecretServiceKeychain.h"
#include "tests/ports/helpers/KeychainContractTest.h"
#include "tests/support/FakeSecretService.h"
#include "tests/support/PrivateBus.h"

namespace ports_test {
namespace {

struct Desktop {
  support::PrivateBus bus{};
  support::FakeSecretService service{bus.address()};
};

qvr::Ref<qvr::KeychainItems> makeKeychain(const support::TemporaryFolder& folder,
                                          std::shared_ptr<void>* world) {
  const auto desktop = std::make_shared<Desktop>();
  *world = desktop;
  qvr::SecretServiceOptions options;
  options.busAddress = desktop->bus.address();
  return qvr::makeRef<qvr::SecretServiceKeychain>(options, folder.file("lock"));
}

INSTANTIATE_TEST_SUITE_P(Desktop, KeychainContractTest,
                         testing::Values(Port{"SecretService", makeKeychain}),
                         [](const auto& port) { return port.param.name; });

}  // namespace
}  // namespace ports_test
