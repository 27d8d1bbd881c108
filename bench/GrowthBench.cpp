// What one handler or one account costs the more there are of them.
#include <algorithm>
#include <future>
#include <numeric>
#include <random>
#include <vector>

#include "bench/InTurns.h"
#include "bench/ManagerHost.h"
#include "src/manager/TokenArchive.h"

namespace {

using qvr::bench::Answers;
using qvr::bench::ManagerHost;
using qvr::bench::WaitingServer;

struct Seconds {
  double queueing;
  double answering;
};

// Queues `count` handlers behind one refresh, and lets the server answer when all are there.
Seconds queueHandlers(std::size_t count) {
  std::promise<void> allAreQueued;
  const auto server = qvr::makeRef<WaitingServer>([&](auto) { allAreQueued.get_future().wait(); },
                                                  200, qvr::bench::refreshBody());
  const std::string expected = qvr::bench::refreshedAccessToken();
  ManagerHost host(qvr::makeInMemoryKeychain(), server);
  host.store(qvr::bench::kUser, 0);
  Answers answers(count);
  const double queueing = qvr::bench::secondsEach(1, [&] {
    for (std::size_t handler = 0; handler < count; ++handler)
      host.request(qvr::bench::kUser, expected, answers);
    host.waitForKeychain();
  });
  const double answering = qvr::bench::secondsEach(1, [&] {
    allAreQueued.set_value();
    answers.wait();
  });
  if (server->requests() != 1) qvr::bench::fail("more than one refresh");
  return {queueing, answering};
}

void queuedHandlers(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  qvr::bench::Samples perItem;
  qvr::bench::Samples answering;
  for (auto _ : state) {
    const Seconds seconds = queueHandlers(count);
    perItem.add((seconds.queueing + seconds.answering) / static_cast<double>(count));
    answering.add(seconds.answering / static_cast<double>(count));
    state.SetIterationTime(seconds.queueing + seconds.answering);
  }
  state.counters["per_item"] = perItem.quantile(0.5);
  state.counters["answering_per_item"] = answering.quantile(0.5);
}
BENCHMARK(queuedHandlers)
    ->Name("growth_queued_handlers")
    ->RangeMultiplier(10)
    ->Range(1, 100000)
    ->UseManualTime()
    ->Iterations(11);

// The accounts of a store, in an order that helps no cache.
std::vector<std::string> shuffledAccounts(std::size_t count) {
  std::vector<std::string> accounts(count);
  for (std::size_t account = 0; account < count; ++account)
    accounts[account] = "user" + std::to_string(account) + "@example.org";
  std::shuffle(accounts.begin(), accounts.end(), std::mt19937(1));
  return accounts;
}

// A host with many accounts, each with a record of about 500 bytes.
class Accounts {
 public:
  explicit Accounts(std::size_t count) : accounts_(shuffledAccounts(count)) {
    for (const std::string& account : accounts_)
      writeToKeychain(account);
  }

  // The operations as a host calls them, and the keychain's part of them.
  void read(const std::string& account, Answers& answers) {
    host_.request(account, accessToken_, answers);
  }
  void write(const std::string& account, Answers& answers) {
    host_.store(account, token_, answers);
  }
  void readFromKeychain(const std::string& account) {
    if (keychain_->passwordDataForService(QVROAuth2ProviderGoogle, account) != archive_) {
      qvr::bench::fail("an account cannot be read");
    }
  }
  void writeToKeychain(const std::string& account) {
    if (!keychain_->setPasswordData(archive_, QVROAuth2ProviderGoogle, account)) {
      qvr::bench::fail("an account cannot be written");
    }
  }

  // Seconds for each of a thousand accounts, the next ones at every call.
  double secondsEach(void (Accounts::*operation)(const std::string&, Answers&)) {
    Answers answers(kAtATime);
    return qvr::bench::secondsEach(1,
                                   [&] {
                                     for (int count = 0; count < kAtATime; ++count)
                                       (this->*operation)(nextAccount(), answers);
                                     answers.wait();
                                   }) /
           kAtATime;
  }
  double secondsEach(void (Accounts::*operation)(const std::string&)) {
    return qvr::bench::secondsEach(kAtATime, [&] { (this->*operation)(nextAccount()); });
  }

 private:
  static constexpr int kAtATime = 1000;

  const std::string& nextAccount() {
    next_ = (next_ + 1) % accounts_.size();
    return accounts_[next_];
  }

  const std::string accessToken_ = std::string(100, 's');
  const qvr::Ref<QVROAuth2Token> token_ = QVROAuth2Token::initWithAccessToken(
      accessToken_, "Bearer", 3600.0, std::string(100, 'r'),
      qvr::TextSet{"https://mail.google.com/"}, qvr::makeSystemClock()());
  const qvr::Data archive_ = archivedToken(*token_, nullptr).value();
  const std::vector<std::string> accounts_;
  std::size_t next_ = 0;
  ManagerHost host_{qvr::makeInMemoryKeychain(), nullptr};
  const qvr::Ref<QVROAuth2Keychain> keychain_ = QVROAuth2Keychain::defaultOAuth2Keychain();
};

template <void (Accounts::*Operation)(const std::string&, Answers&),
          void (Accounts::*InKeychain)(const std::string&)>
void storedAccounts(benchmark::State& state) {
  Accounts accounts(static_cast<std::size_t>(state.range(0)));
  qvr::bench::Samples samples;
  qvr::bench::Samples keychainSamples;
  for (auto _ : state) {
    samples.add(accounts.secondsEach(Operation));
    keychainSamples.add(accounts.secondsEach(InKeychain));
    state.SetIterationTime(samples.last());
  }
  state.counters["per_item"] = samples.quantile(0.5);
  state.counters["keychain_per_item"] = keychainSamples.quantile(0.5);
}
BENCHMARK(storedAccounts<&Accounts::read, &Accounts::readFromKeychain>)
    ->Name("growth_stored_accounts_in_memory_read")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100000)
    ->UseManualTime()
    ->Iterations(100);
BENCHMARK(storedAccounts<&Accounts::write, &Accounts::writeToKeychain>)
    ->Name("growth_stored_accounts_in_memory_write")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100000)
    ->UseManualTime()
    ->Iterations(100);

}  // namespace

BENCHMARK_MAIN();
