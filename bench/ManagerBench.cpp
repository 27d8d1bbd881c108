// Fresh tokens through the manager, on the in-memory keychain: one thread's wait for its token, and
// how many a second several threads get.
#include <sched.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "bench/Allocations.h"
#include "bench/InTurns.h"
#include "bench/ManagerHost.h"
#include "bench/floor/TokenManager.h"

namespace {

using qvr::bench::Answers;
using qvr::bench::ManagerHost;

constexpr double kFresh = 3600;

qvr::Ref<qvr::URLSession> unusedServer() {
  return qvr::makeRef<qvr::bench::WaitingServer>([](auto) {}, 500, "");
}

// The same work in plain C.
class FloorHost {
 public:
  FloorHost() {
    floor_manager_store(manager_, qvr::bench::kUser, expected_.c_str(),
                        qvr::bench::refreshToken().c_str(), kFresh);
  }
  ~FloorHost() { floor_manager_close(manager_); }
  FloorHost(const FloorHost&) = delete;
  FloorHost& operator=(const FloorHost&) = delete;

  void waitForToken() {
    Wait wait{this, Answers(1)};
    floor_manager_request(
        manager_, qvr::bench::kUser,
        [](void* context, const char* accessToken) {
          Wait& waiting = *static_cast<Wait*>(context);
          if (accessToken == nullptr || waiting.host->expected_ != accessToken) {
            qvr::bench::fail("the floor has no token");
          }
          waiting.answers.count();
        },
        &wait);
    wait.answers.wait();
  }

 private:
  struct Wait {
    FloorHost* host;
    Answers answers;
  };

  const std::string expected_ = qvr::bench::storedAccessToken();
  floor_manager* const manager_ = floor_manager_open(0, "");
};

void waitForToken(ManagerHost& host, const std::string& user, const std::string& expected) {
  Answers answers(1);
  host.request(user, expected, answers);
  answers.wait();
}

// While one lives, the threads that are made run on one processor. Left alone, the scheduler wakes
// now the floor's threads and now the library's on another one, which costs twice what both do.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof allowed_, &allowed_);
    std::size_t first = 0;
    while (!CPU_ISSET(first, &allowed_))
      ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) qvr::bench::fail("no processor to run on");
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof allowed_, &allowed_); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t allowed_{};
};

void managerFreshToken(benchmark::State& state) {
  const OneProcessor oneProcessor;
  const std::string expected = qvr::bench::storedAccessToken();
  FloorHost floor;
  ManagerHost host(qvr::makeInMemoryKeychain(), unusedServer());
  host.store(qvr::bench::kUser, kFresh);
  const auto work = [&] { waitForToken(host, qvr::bench::kUser, expected); };
  state.counters["allocations"] = qvr::bench::allocationsOf(work);
  qvr::bench::measureInTurns(
      state, 20, [&] { floor.waitForToken(); }, work);
}
BENCHMARK(managerFreshToken)->Name("manager_fresh_token")->UseManualTime()->Iterations(1000);

// Every thread asks for its own account, and waits for each token before it asks again.
void managerThroughput(benchmark::State& state) {
  constexpr int kRequestsOfAThread = 500;
  const std::string expected = qvr::bench::storedAccessToken();
  ManagerHost host(qvr::makeInMemoryKeychain(), unusedServer());
  std::vector<std::string> users(static_cast<std::size_t>(state.range(0)));
  for (std::string& user : users) {
    user = "user" + std::to_string(&user - users.data()) + "@example.org";
    host.store(user, kFresh);
  }
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    {
      std::vector<std::jthread> threads;
      for (const std::string& user : users) {
        threads.emplace_back([&host, &user, &expected] {
          for (int request = 0; request < kRequestsOfAThread; ++request)
            waitForToken(host, user, expected);
        });
      }
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(passed.count());
  }
  state.SetItemsProcessed(state.iterations() * kRequestsOfAThread * state.range(0));
}
BENCHMARK(managerThroughput)
    ->Name("manager_throughput")
    ->RangeMultiplier(2)
    ->Range(1, 8)
    ->UseManualTime()
    ->Iterations(20);

}  // namespace

BENCHMARK_MAIN();
