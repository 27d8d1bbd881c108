// Many requests at once for one token that is due: one refresh answers them all, and how soon after
// the server has answered is what is measured.
#include <filesystem>
#include <thread>
#include <vector>

#include "bench/InTurns.h"
#include "bench/ManagerHost.h"
#include "bench/Memory.h"
#include "bench/floor/TokenManager.h"

namespace {

using qvr::bench::Answers;
using qvr::bench::answersAfter;
using qvr::bench::ManagerHost;
using qvr::bench::secondsEach;
using qvr::bench::WaitingServer;

constexpr std::size_t kThreads = 4;
constexpr std::size_t kRequests = 10000;
constexpr std::chrono::milliseconds kServerDelay{100};
constexpr double kServerSeconds = 0.1;
constexpr double kDue = 0;

// Calls `ask` as often as there are requests, from several threads.
template <typename Ask>
void askAll(const Ask& ask) {
  std::vector<std::jthread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&ask] {
      for (std::size_t request = 0; request < kRequests / kThreads; ++request)
        ask();
    });
  }
}

// Seconds from the first request to the last answer.
template <typename Ask>
double secondsToLastAnswer(Answers& answers, const Ask& ask) {
  return secondsEach(1, [&] {
    askAll(ask);
    answers.wait();
  });
}

double floorBurst() {
  const std::string expected = qvr::bench::refreshedAccessToken();
  floor_manager* const manager = floor_manager_open(kServerSeconds, expected.c_str());
  floor_manager_store(manager, qvr::bench::kUser, qvr::bench::storedAccessToken().c_str(),
                      qvr::bench::refreshToken().c_str(), kDue);
  Answers answers(kRequests);
  const double seconds = secondsToLastAnswer(answers, [&] {
    floor_manager_request(
        manager, qvr::bench::kUser,
        [](void* context, const char* token) {
          if (token == nullptr || token[0] != 'n') qvr::bench::fail("the floor has no new token");
          static_cast<Answers*>(context)->count();
        },
        &answers);
  });
  if (floor_manager_refreshes(manager) != 1) qvr::bench::fail("the floor refreshed again");
  floor_manager_close(manager);
  return seconds;
}

struct Burst {
  double seconds;
  double peakBytes;
  int refreshes;
};

Burst burst(const qvr::Ref<qvr::KeychainItems>& items) {
  const std::string expected = qvr::bench::refreshedAccessToken();
  const auto server =
      qvr::makeRef<WaitingServer>(answersAfter(kServerDelay), 200, qvr::bench::refreshBody());
  ManagerHost host(items, server);
  host.store(qvr::bench::kUser, kDue);
  Answers answers(kRequests);
  const qvr::bench::PeakMemory memory;
  const double seconds =
      secondsToLastAnswer(answers, [&] { host.request(qvr::bench::kUser, expected, answers); });
  return {seconds, memory.bytes(), server->requests()};
}

// `peak_bytes` is the median of all bursts. The worst one depends on how long the scheduler keeps
// the thread waiting that takes the results of the reads.
template <typename MakeItems>
void measureBursts(benchmark::State& state, const MakeItems& makeItems) {
  qvr::bench::Samples floorSamples;
  qvr::bench::Samples samples;
  qvr::bench::Samples peakBytes;
  int refreshes = 0;
  for (auto _ : state) {
    floorSamples.add(floorBurst());
    const Burst measured = burst(makeItems());
    samples.add(measured.seconds);
    state.SetIterationTime(measured.seconds);
    peakBytes.add(measured.peakBytes);
    refreshes = std::max(refreshes, measured.refreshes);
  }
  floorSamples.report(state, "floor_");
  samples.report(state, "");
  state.counters["ratio"] = samples.quantile(0.5) / floorSamples.quantile(0.5);
  state.counters["peak_bytes"] = peakBytes.quantile(0.5);
  state.counters["worst_peak_bytes"] = peakBytes.quantile(1);
  state.counters["refreshes"] = refreshes;
}

void burstInMemory(benchmark::State& state) {
  measureBursts(state, [] { return qvr::makeInMemoryKeychain(); });
}
BENCHMARK(burstInMemory)->Name("burst_10000_in_memory")->UseManualTime()->Iterations(15);

// A folder for one benchmark, removed with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    if (mkdtemp(path_.data()) == nullptr) qvr::bench::fail("no temporary folder");
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "qvr-burst-XXXXXX";
};

void burstEncryptedFile(benchmark::State& state) {
  const TemporaryFolder folder;
  qvr::EncryptedFileKeychainOptions options;
  options.directory = folder.path() + "/items";
  options.keyFile = folder.path() + "/key";
  measureBursts(state, [&] { return qvr::makeEncryptedFileKeychain(options); });
}
BENCHMARK(burstEncryptedFile)->Name("burst_10000_encrypted_file")->UseManualTime()->Iterations(15);

// 200 requests; the server fails after its delay, when all keychain reads are long done. `ratio` is
// the time until all are answered to the server's.
void measureFailingBursts(benchmark::State& state, std::int64_t status, const std::string& body,
                          std::string_view expectedDomain) {
  constexpr std::size_t kFailing = 200;
  qvr::bench::Samples samples;
  int requests = 0;
  for (auto _ : state) {
    const auto server = qvr::makeRef<WaitingServer>(answersAfter(kServerDelay), status, body);
    ManagerHost host(qvr::makeInMemoryKeychain(), server);
    host.store(qvr::bench::kUser, kDue);
    Answers answers(kFailing);
    samples.add(secondsEach(1, [&] {
      for (std::size_t request = 0; request < kFailing; ++request)
        host.requestInVain(qvr::bench::kUser, expectedDomain, answers);
      answers.wait();
    }));
    state.SetIterationTime(samples.last());
    requests = std::max(requests, server->requests());
  }
  samples.report(state, "");
  state.counters["ratio"] = samples.quantile(0.5) / kServerSeconds;
  state.counters["requests"] = requests;
}

void burstFailing503(benchmark::State& state) {
  measureFailingBursts(state, 503, "", QVROAuth2HTTPErrorDomain);
}
BENCHMARK(burstFailing503)->Name("burst_failing_503")->UseManualTime()->Iterations(10);

void burstFailingInvalidGrant(benchmark::State& state) {
  measureFailingBursts(state, 400, R"({"error":"invalid_grant"})", QVROAuth2ErrorDomain);
}
BENCHMARK(burstFailingInvalidGrant)
    ->Name("burst_failing_invalid_grant")
    ->UseManualTime()
    ->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
