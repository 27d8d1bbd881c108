// A refresh over HTTPS beside plain libcurl on the calling thread: from the task's making to the
// call of its handler. The server is a process of its own on loopback.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "bench/InTurns.h"
#include "bench/TLSServer.h"
#include "bench/floor/Refresh.h"

namespace {

using Clock = std::chrono::steady_clock;
using qvr::bench::Samples;
using qvr::bench::TLSServer;

constexpr const char* kClientIdentifier = "123456789-abcdefghijklmnop.apps.example.com";
constexpr const char* kClientSecret = "example-secret";

std::string refreshToken() {
  return std::string(500, 'r');
}

double secondsBetween(Clock::time_point start, Clock::time_point end) {
  return std::chrono::duration<double>(end - start).count();
}

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// A registration at the server that is measured.
class Client final : public QVROAuth2PublicClient {
 public:
  explicit Client(std::string tokenURI)
      : QVROAuth2PublicClient(kClientIdentifier, kClientSecret), tokenURI_(std::move(tokenURI)) {}
  qvr::Text tokenURI() const override { return tokenURI_; }

 private:
  ~Client() override = default;
  const std::string tokenURI_;
};

// What a handler hands over to the thread that waits for it, and when it was called.
template <class Answer>
class Handover {
 public:
  void put(Answer answer) {
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    answer_ = std::move(answer);
    calledAt_ = now;
    isThere_ = true;
    changed_.notify_one();
  }

  Answer take(Clock::time_point& calledAt) {
    std::unique_lock lock(mutex_);
    const bool isThere =
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return isThere_; });
    require(isThere, "a handler was not called");
    isThere_ = false;
    calledAt = calledAt_;
    return std::move(answer_);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Answer answer_{};
  Clock::time_point calledAt_;
  bool isThere_ = false;
};

// Seconds of one refresh by the library.
double secondsOfRefresh(const Client& client) {
  static Handover<qvr::Ref<QVROAuth2AccessTokenResponse>>& handover =
      *new Handover<qvr::Ref<QVROAuth2AccessTokenResponse>>;
  const std::string token = refreshToken();
  const auto start = Clock::now();
  client
      .taskForRefreshingAccessTokenWithRefreshToken(
          token, [](auto response, const auto&) { handover.put(std::move(response)); })
      ->resume();
  Clock::time_point end;
  const auto response = handover.take(end);
  require(response && response->accessToken().text() == TLSServer::accessToken(),
          "a refresh failed");
  return secondsBetween(start, end);
}

double secondsOfFloor(floor_client* floor, const std::string& url) {
  const std::string token = refreshToken();
  const auto start = Clock::now();
  const std::size_t length =
      floor_refresh(floor, url.c_str(), kClientIdentifier, kClientSecret, token.c_str());
  const auto end = Clock::now();
  require(length > TLSServer::accessToken().size(), "a refresh of the floor failed");
  return secondsBetween(start, end);
}

void fetch(qvr::URLSession& session, const std::string& url, std::size_t size) {
  static Handover<std::size_t>& handover = *new Handover<std::size_t>;
  session
      .dataTask(
          qvr::URLRequest(*qvr::URL::URLWithString(url)),
          [](const auto& data, const auto*, const auto&) { handover.put(data ? data->size() : 0); })
      ->resume();
  Clock::time_point end;
  require(handover.take(end) == size, "a body is not whole");
}

void fetchByFloor(floor_client* floor, const std::string& url, std::size_t size) {
  require(floor_fetch(floor, url.c_str()) == size, "a body of the floor is not whole");
}

struct World {
  qvr::bench::Certificates certificates;
  TLSServer server{certificates};
};

World& world() {
  static World world;
  return world;
}

qvr::Ref<qvr::URLSession> makeSession(const std::string& trustFile) {
  qvr::URLSessionOptions options;
  options.certificateAuthorityFile = trustFile;
  return qvr::makeURLSession(options);
}

void install(const std::string& trustFile) {
  QVROAuth2Host host;
  host.setKeychainItems(qvr::makeInMemoryKeychain());
  host.setURLSession(makeSession(trustFile));
  host.install();
}

// Samples of one kind in a row.
constexpr int kRow = 20;

floor_client* openFloor(bool resumes) {
  floor_client* const floor = floor_client_open(world().certificates.trustFile().c_str(), resumes);
  require(floor != nullptr, "libcurl cannot be used");
  return floor;
}

void report(benchmark::State& state, const Samples& floorSamples, const Samples& samples) {
  floorSamples.report(state, "floor_");
  samples.report(state, "");
  state.counters["ratio"] = samples.quantile(0.5) / floorSamples.quantile(0.5);
  state.counters["p99_ratio"] = samples.quantile(0.99) / floorSamples.quantile(0.99);
}

// After a turn's change the first ones find the other's work in the caches, and are not counted.
template <class Work>
void addRow(Samples& samples, Work&& seconds) {
  seconds();
  for (int sample = 0; sample < kRow; ++sample)
    samples.add(seconds());
}

void measureRefresh(benchmark::State& state, const char* path, bool resumes) {
  const std::string url = world().server.url(path);
  const auto client = qvr::makeRef<Client>(url);
  floor_client* const floor = openFloor(resumes);
  Samples floorSamples, samples;
  for (auto _ : state) {
    addRow(floorSamples, [&] { return secondsOfFloor(floor, url); });
    addRow(samples, [&] { return secondsOfRefresh(*client); });
    state.SetIterationTime(samples.last());
  }
  report(state, floorSamples, samples);
  floor_client_close(floor);
}

void refreshKept(benchmark::State& state) {
  measureRefresh(state, "/token", true);
}
BENCHMARK(refreshKept)->Name("refresh_kept")->UseManualTime()->Iterations(200);

void refreshFresh(benchmark::State& state) {
  measureRefresh(state, "/close", false);
}
BENCHMARK(refreshFresh)->Name("refresh_fresh")->UseManualTime()->Iterations(25);

void refreshResumed(benchmark::State& state) {
  measureRefresh(state, "/close", true);
}
BENCHMARK(refreshResumed)->Name("refresh_fresh_resumed")->UseManualTime()->Iterations(25);

// Seconds of one refresh in a new process, whose trust store is cold.
double secondsOfFirst(const std::string& which) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  const std::string command = program + " --first " + which + " " + world().server.url("/token") +
                              " " + world().certificates.trustFile();
  FILE* const output = ::popen(command.c_str(), "r");
  require(output != nullptr, "no process");
  double seconds = 0;
  const int count = std::fscanf(output, "%lf", &seconds);
  require(::pclose(output) == 0 && count == 1, "a first refresh failed");
  return seconds;
}

// libcurl itself is loaded by the time either one begins.
void refreshFirst(benchmark::State& state) {
  Samples floorSamples, samples;
  for (auto _ : state) {
    floorSamples.add(secondsOfFirst("floor"));
    samples.add(secondsOfFirst("library"));
    state.SetIterationTime(samples.last());
  }
  report(state, floorSamples, samples);
}
BENCHMARK(refreshFirst)->Name("refresh_first")->UseManualTime()->Iterations(50);

// Processor time of this process for each of a row of calls. What a kilobyte adds to an answer
// would not show in elapsed time, in which waking up is by far the most and the most uneven part.
template <class Work>
double processorSecondsEach(Work&& work) {
  const auto now = [] {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  for (int call = 0; call < kRow / 4; ++call)
    work();  // not counted: the first ones find the other's work in the caches
  const double start = now();
  for (int call = 0; call < kRow; ++call)
    work();
  return (now() - start) / kRow;
}

// The fixed cost of an answer is that of one with a body of a single byte, measured in the same
// turn.
struct BodySamples {
  Samples fixed;
  Samples whole;
  double perKilobyte(std::size_t size) const {
    return (whole.quantile(0.5) - fixed.quantile(0.5)) * 1024 / static_cast<double>(size - 1);
  }
};

// Keeps the threads that are made meanwhile, and this one, on one processor: moving to another one
// costs time that says nothing about a body.
class OnOneProcessor {
 public:
  OnOneProcessor() {
    ::sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    ::sched_setaffinity(0, sizeof one, &one);
  }
  ~OnOneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }
  OnOneProcessor(const OnOneProcessor&) = delete;
  OnOneProcessor& operator=(const OnOneProcessor&) = delete;

 private:
  cpu_set_t before_{};
};

void growthOfBody(benchmark::State& state) {
  const OnOneProcessor pinned;
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::string url = world().server.url("/" + std::to_string(size));
  const std::string shortest = world().server.url("/1");
  const auto session = makeSession(world().certificates.trustFile());
  floor_client* const floor = openFloor(true);
  BodySamples floorSamples, samples;
  for (auto _ : state) {
    const auto start = Clock::now();
    floorSamples.fixed.add(processorSecondsEach([&] { fetchByFloor(floor, shortest, 1); }));
    floorSamples.whole.add(processorSecondsEach([&] { fetchByFloor(floor, url, size); }));
    samples.fixed.add(processorSecondsEach([&] { fetch(*session, shortest, 1); }));
    samples.whole.add(processorSecondsEach([&] { fetch(*session, url, size); }));
    state.SetIterationTime(secondsBetween(start, Clock::now()));
  }
  state.counters["per_item"] = samples.perKilobyte(size);
  state.counters["floor_per_item"] = floorSamples.perKilobyte(size);
  state.counters["ratio"] = samples.whole.quantile(0.5) / floorSamples.whole.quantile(0.5);
  floor_client_close(floor);
}
// What a kilobyte adds to the shortest bodies is little beside the fixed cost: it takes many turns.
void registerGrowthOfBody() {
  for (std::int64_t size = 1 << 10; size <= 1 << 20; size *= 4) {
    benchmark::RegisterBenchmark("growth_answer_body", growthOfBody)
        ->Arg(size)
        ->UseManualTime()
        ->Iterations(std::max<std::int64_t>(40, (1 << 20) / size));
  }
}

// What a benchmark of first refreshes starts: one refresh, whose seconds it prints.
void refreshOnce(const std::string& which, const std::string& url, const std::string& trustFile) {
  double seconds = 0;
  if (which == "floor") {
    floor_client* const floor = floor_client_open(trustFile.c_str(), 0);
    require(floor != nullptr, "libcurl cannot be used");
    seconds = secondsOfFloor(floor, url);
  } else {
    install(trustFile);
    seconds = secondsOfRefresh(*qvr::makeRef<Client>(url));
  }
  std::printf("%.9f\n", seconds);
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv, argv + argc);
  if (arguments.size() == 5 && arguments[1] == "--first") {
    refreshOnce(arguments[2], arguments[3], arguments[4]);
    return 0;
  }
  install(world().certificates.trustFile());
  benchmark::Initialize(&argc, argv);
  registerGrowthOfBody();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
