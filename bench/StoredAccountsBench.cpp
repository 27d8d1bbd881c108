// The encrypted file keychain with few and with many accounts: what reading, replacing and listing
// an item costs must not depend on how many others there are.
//
// The files lie in memory where the machine has a folder with room for them: syncing a disk takes
// so long that nothing else could be seen beside it.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"
#include "bench/InTurns.h"
#include "tests/ports/helpers/KeychainQueries.h"

namespace {

constexpr const char* kService = "com.example.mail.Google.OAuth2Token";
constexpr std::size_t kItemBytes = 2048;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "StoredAccountsBench: %s\n", what);
  std::exit(1);
}

// A container's memory folder often has room for a few thousand items only.
std::filesystem::path parentFolder() {
  constexpr std::uintmax_t kNeeded = std::uintmax_t{1} << 30;
  const std::filesystem::path memory = "/dev/shm";
  std::error_code none;
  const std::filesystem::space_info space = std::filesystem::space(memory, none);
  const bool isFit = !none && space.available >= kNeeded && ::access(memory.c_str(), W_OK) == 0;
  return isFit ? memory : std::filesystem::temp_directory_path();
}

std::string newFolder() {
  std::string path = parentFolder() / "qvr-bench-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) fail("no temporary folder can be made");
  return path;
}

// A store with this many accounts.
class Store {
 public:
  explicit Store(std::int64_t accounts) {
    qvr::EncryptedFileKeychainOptions options;
    options.directory = folder_ + "/items";
    options.keyFile = folder_ + "/key";
    keychain_ = qvr::makeEncryptedFileKeychain(options);
    for (std::int64_t number = 0; number < accounts; ++number)
      accounts_.push_back("user" + std::to_string(number) + "@example.com");
    for (const std::string& account : accounts_) {
      if (item(account).add(text_) != qvr::errSecSuccess) fail("an item cannot be added");
    }
    std::shuffle(accounts_.begin(), accounts_.end(), std::mt19937(1));
  }
  ~Store() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Each on the next account, in an order that is none.
  void read() {
    qvr::Data data;
    if (item(next()).read(&data) != qvr::errSecSuccess || !std::ranges::equal(data, text_))
      fail("an item was not read as it was written");
  }
  void write() {
    if (item(next()).update(text_) != qvr::errSecSuccess) fail("an item cannot be replaced");
  }

  void list() {
    std::vector<qvr::KeychainItemName> names;
    if (keychain_->list(&names) != qvr::errSecSuccess || names.size() != accounts_.size())
      fail("the items listed are not those stored");
  }

 private:
  ports_test::Item item(const std::string& account) const {
    return {*keychain_, kService, account};
  }
  const std::string& next() { return accounts_[next_++ % accounts_.size()]; }

  const std::string folder_ = newFolder();
  const std::string text_ = std::string(kItemBytes, 'x');
  qvr::Ref<qvr::KeychainItems> keychain_;
  std::vector<std::string> accounts_{};
  std::size_t next_ = 0;
};

// The stores are filled once, for all series.
std::map<std::int64_t, std::unique_ptr<Store>> stores;

Store& storeWith(std::int64_t accounts) {
  std::unique_ptr<Store>& store = stores[accounts];
  if (!store) store = std::make_unique<Store>(accounts);
  return *store;
}

// One sample for each iteration; `items` is how many items the work goes through.
template <typename Work>
void measure(benchmark::State& state, std::int64_t items, Work&& work) {
  work();
  if (qvr::bench::wasCounted(state, work)) return;
  qvr::bench::Samples samples;
  for (auto _ : state) {
    samples.add(qvr::bench::secondsEach(1, work));
    state.SetIterationTime(samples.last());
  }
  state.counters["per_item"] = samples.quantile(0.5) / static_cast<double>(items);
}

void growthOfReads(benchmark::State& state) {
  Store& store = storeWith(state.range(0));
  measure(state, 1, [&] { store.read(); });
}

void growthOfWrites(benchmark::State& state) {
  Store& store = storeWith(state.range(0));
  measure(state, 1, [&] { store.write(); });
}

void growthOfLists(benchmark::State& state) {
  Store& store = storeWith(state.range(0));
  measure(state, state.range(0), [&] { store.list(); });
}

void registerGrowth(const char* name, void (*growth)(benchmark::State&),
                    std::int64_t (*iterations)(std::int64_t accounts)) {
  for (const std::int64_t accounts : {10, 1'000, 100'000}) {
    benchmark::RegisterBenchmark(name, growth)
        ->Arg(accounts)
        ->UseManualTime()
        ->Iterations(iterations(accounts));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const auto ofOneItem = [](std::int64_t) { return std::int64_t{5'000}; };
  const auto ofAll = [](std::int64_t accounts) {
    return std::max(std::int64_t{5}, 20'000 / accounts);
  };
  registerGrowth("growth_encrypted_file_read", growthOfReads, ofOneItem);
  registerGrowth("growth_encrypted_file_write", growthOfWrites, ofOneItem);
  registerGrowth("growth_encrypted_file_list", growthOfLists, ofAll);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  stores.clear();
  return 0;
}
