// Reads from a desktop's keyring in a running process, beside the same calls by hand. The keyring
// is a real one, alone on a bus of its own.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"
#include "bench/Allocations.h"
#include "bench/InTurns.h"
#include "bench/floor/Keyring.h"
#include "src/ports/SecretServicePayload.h"
#include "tests/e2e/desktop/GnomeKeyring.h"
#include "tests/ports/helpers/KeychainQueries.h"

namespace {

constexpr const char* kService = "com.example.mail.Google.OAuth2Token";
constexpr std::size_t kItemBytes = 4096;

[[noreturn]] void fail(const char* what) {
  std::cerr << "KeyringBench: " << what << '\n';
  std::exit(1);
}

std::string accountOf(std::int64_t number) {
  return "user" + std::to_string(number) + "@example.com";
}

// A keyring with this many items, and both ways to read from it.
class Keyring {
 public:
  explicit Keyring(std::int64_t items) {
    std::vector<e2e::StoredItem> stored;
    for (std::int64_t number = 0; number < items; ++number)
      stored.push_back({{kService, accountOf(number)}, payload_});
    daemon_.create(stored);
    if (floor_keyring_open(&floor_, daemon_.busAddress().c_str()) == 0)
      fail("the floor cannot open a session");
    keychain_ = qvr::makeSecretServiceKeychain({.busAddress = daemon_.busAddress()});
  }
  ~Keyring() { floor_keyring_close(&floor_); }
  Keyring(const Keyring&) = delete;
  Keyring& operator=(const Keyring&) = delete;

  void readByHand(const std::string& account) {
    std::array<unsigned char, 2 * kItemBytes> value;
    const long size =
        floor_keyring_read(&floor_, kService, account.c_str(), value.data(), value.size());
    const auto* const text = reinterpret_cast<const char*>(value.data());
    if (size < 0 || std::string_view(text, static_cast<std::size_t>(size)) != payload_)
      fail("the floor read something else than the item's value");
  }

  void readByLibrary(const std::string& account) {
    qvr::Data data;
    const ports_test::Item item{*keychain_, kService, account};
    if (item.read(&data) != qvr::errSecSuccess || data != data_)
      fail("the library read something else than the item");
  }

 private:
  static std::string payloadOf(const qvr::Data& data) {
    const qvr::SecretBytes payload = qvr::encodeSecretServicePayload(data);
    return {payload.data(), payload.data() + payload.size()};
  }

  const qvr::Data data_ = qvr::Data(kItemBytes, 'x');
  const std::string payload_ = payloadOf(data_);
  const support::TemporaryFolder folder_;
  e2e::GnomeKeyring daemon_{folder_};
  floor_keyring floor_{};
  qvr::Ref<qvr::KeychainItems> keychain_;
};

void keyringRead(benchmark::State& state) {
  Keyring keyring(1);
  const std::string account = accountOf(0);
  const auto work = [&] { keyring.readByLibrary(account); };
  state.counters["allocations"] = qvr::bench::allocationsOf(work);
  qvr::bench::measureInTurns(
      state, 1, [&] { keyring.readByHand(account); }, work);
}
BENCHMARK(keyringRead)->Name("keyring_read")->UseManualTime()->Iterations(3000);

// The daemon looks through all items for each search, as the floor shows, and writes all of them
// for each that is added: with more of them nothing else would be measured.
void growthOfKeyringRead(benchmark::State& state) {
  Keyring keyring(state.range(0));
  std::int64_t next = 0;
  std::string account;
  qvr::bench::measureInTurns(
      state, 1,
      [&] {
        account = accountOf(next++ * 7 % state.range(0));
        keyring.readByHand(account);
      },
      [&] { keyring.readByLibrary(account); });
  state.counters["per_item"] = state.counters["median"];
}
BENCHMARK(growthOfKeyringRead)
    ->Name("growth_secret_service_read")
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->UseManualTime()
    ->Iterations(500);

}  // namespace

BENCHMARK_MAIN();
