// A process that writes into a keychain, for the tests that kill it or race it.
//
//   keychain_writer store DIRECTORY KEYFILE MICROSECONDS
//       stores two values in turn until SIGKILL comes, which it has the kernel send after the time
//   keychain_writer add DIRECTORY KEYFILE VALUE
//       waits for the end of its input, adds the item, and prints the status
//   keychain_writer add-to-secret-service BUS-ADDRESS SERVICE VALUE
//       the same, in a Secret Service

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/ports/helpers/KeychainQueries.h"
#include "tests/ports/programs/WriterValues.h"

namespace {

using ports_test::Item;

bool killAfter(long microseconds) {
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGKILL;
  timer_t timer{};
  itimerspec moment{};
  moment.it_value.tv_sec = microseconds / 1'000'000;
  moment.it_value.tv_nsec = microseconds % 1'000'000 * 1000 + 1;
  return timer_create(CLOCK_MONOTONIC, &event, &timer) == 0 &&
         timer_settime(timer, 0, &moment, nullptr) == 0;
}

int store(const Item& item, long microseconds) {
  if (!killAfter(microseconds)) return EXIT_FAILURE;
  for (long turn = microseconds;; ++turn) {
    const std::string value = turn % 2 == 0 ? ports_test::oldValue() : ports_test::newValue();
    const std::int32_t status = item.probe() == 0 ? item.update(value) : item.add(value);
    if (status != 0) return EXIT_FAILURE;
  }
}

int add(const Item& item, std::string_view value) {
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  std::printf("%d", static_cast<int>(item.add(value)));
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return EXIT_FAILURE;
  if (std::string_view(argv[1]) == "add-to-secret-service") {
    const auto service = qvr::makeSecretServiceKeychain({.busAddress = argv[2]});
    return add(Item{*service, argv[3]}, argv[4]);
  }
  const auto keychain = qvr::makeEncryptedFileKeychain({argv[2], argv[3], std::nullopt});
  const Item item{*keychain};
  if (std::string_view(argv[1]) == "store") return store(item, std::atol(argv[4]));
  return add(item, argv[4]);
}
