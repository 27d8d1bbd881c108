// A refresh over HTTPS beside plain libcurl on the calling thread: from the task's making to the
// call of its handler. The server is a process of its own on loopback.
#include <benchmark/benchmark.h>
#include <sched.h>

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

double secondsOfFetch(qvr::URLSession& session, const std::string& url, std::size_t size) {
  static Handover<std::size_t>& handover = *new Handover<std::size_t>;
  const auto start = Clock::now();
  session
      .dataTask(
          qvr::URLRequest(*qvr::URL::URLWithString(url)),
          [](const auto& data, const auto*, const auto&) { handover.put(data ? data->size() : 0); })
      ->resume();
  Clock::time_point end;
  require(handover.take(end) == size, "a body is not whole");
  return secondsBetween(start, end);
}

double secondsOfFetchByFloor(floor_client* floor, const std::string& url, std::size_t size) {
  const auto start = Clock::now();
  const std::size_t received = floor_fetch(floor, url.c_str());
  const auto end = Clock::now();
  require(received == size, "a body of the floor is not whole");
  return secondsBetween(start, end);
}

// Both sides have one processor, and the server has another. Left alone, the scheduler now puts the
// floor's single thread beside the server and now on the same processor, which is worth more than
// all that is compared here. The library's threads get no more than that thread has. On a machine
// with a single processor there is nothing to choose.
class Placement {
 public:
  Placement() {
    ::sched_getaffinity(0, sizeof allowed_, &allowed_);
    while (!CPU_ISSET(first_, &allowed_))
      ++first_;
    while (!CPU_ISSET(last_, &allowed_))
      --last_;
  }
  void beServer() const { runOn(last_); }
  void beClient() const { runOn(first_); }

 private:
  // Threads and processes that are made from now on are there too.
  static void runOn(std::size_t processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    require(::sched_setaffinity(0, sizeof one, &one) == 0, "no processor to run on");
  }

  cpu_set_t allowed_{};
  std::size_t first_ = 0;
  std::size_t last_ = CPU_SETSIZE - 1;
};

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
  if (qvr::bench::wasCounted(state, [&] { secondsOfRefresh(*client); })) return;
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
BENCHMARK(refreshKept)->Name("refresh_kept")->UseManualTime()->Iterations(2000);

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

// Per kilobyte with all that an answer costs however short it is: the share of that falls as bodies
// grow, and what is left has to stay what it is.
void growthOfBody(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::string url = world().server.url("/" + std::to_string(size));
  const auto session = makeSession(world().certificates.trustFile());
  floor_client* const floor = openFloor(true);
  Samples floorSamples, samples;
  for (auto _ : state) {
    addRow(floorSamples, [&] { return secondsOfFetchByFloor(floor, url, size); });
    addRow(samples, [&] { return secondsOfFetch(*session, url, size); });
    state.SetIterationTime(samples.last());
  }
  report(state, floorSamples, samples);
  const double kilobytes = static_cast<double>(size) / 1024;
  state.counters["per_item"] = samples.quantile(0.5) / kilobytes;
  state.counters["floor_per_item"] = floorSamples.quantile(0.5) / kilobytes;
  floor_client_close(floor);
}
BENCHMARK(growthOfBody)
    ->Name("growth_answer_body")
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 20)
    ->UseManualTime()
    ->Iterations(60);

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
  const Placement placement;
  placement.beServer();
  world();
  placement.beClient();
  install(world().certificates.trustFile());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
