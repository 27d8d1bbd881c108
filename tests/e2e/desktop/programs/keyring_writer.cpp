// A process that writes one item of the session's keyring, for the tests that race it:
//
//   keyring_writer SERVICE ACCOUNT VALUE
//
// says that it is ready, waits for the end of its input, and adds the item, or replaces its data
// when there is one.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/KeychainQueries.h"

int main(int argc, char** argv) {
  if (argc != 4) return EXIT_FAILURE;
  const auto keychain = qvr::makeSecretServiceKeychain();
  const ports_test::Item item{*keychain, argv[1], argv[2]};
  const std::int32_t probed = item.probe();  // connects, so that the race is about the writing
  std::printf("ready\n");
  std::fflush(stdout);
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  std::int32_t status = item.add(argv[3]);
  if (status == qvr::errSecDuplicateItem) status = item.update(argv[3]);
  std::printf("status %d, at first %d\n", static_cast<int>(status), static_cast<int>(probed));
  return status == qvr::errSecSuccess ? EXIT_SUCCESS : EXIT_FAILURE;
}
