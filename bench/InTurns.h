// Measures an operation and its floor in turns, so that whatever slows the machine slows both.
#ifndef QVR_BENCH_IN_TURNS_H
#define QVR_BENCH_IN_TURNS_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace qvr::bench {

// The durations of one kind of work, in seconds.
class Samples {
 public:
  void add(double seconds) { seconds_.push_back(seconds); }
  double last() const { return seconds_.back(); }

  // The sample that `share` (0...1) of all samples do not exceed. At least one sample is needed.
  double quantile(double share) const {
    std::vector<double> sorted = seconds_;
    std::sort(sorted.begin(), sorted.end());
    const auto last = static_cast<double>(sorted.size() - 1);
    return sorted[static_cast<std::size_t>(share * last + 0.5)];
  }

  // Makes the counters `<prefix>median` and `<prefix>p99`, in seconds.
  void report(benchmark::State& state, const std::string& prefix) const {
    state.counters[prefix + "median"] = quantile(0.5);
    state.counters[prefix + "p99"] = quantile(0.99);
  }

 private:
  std::vector<double> seconds_;
};

// How long one of `count` calls of `work` takes, in seconds.
template <typename Work>
double secondsEach(int count, Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int call = 0; call < count; ++call)
    work();
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  return passed.count() / count;
}

// How often the work alone is to be done, for a profiler that counts its instructions
// (scripts/count-instructions); 0 when it is to be measured.
inline int callsToCount() {
  const char* const calls = std::getenv("QVR_BENCH_CALLS_TO_COUNT");
  return calls ? std::atoi(calls) : 0;
}

// Whether a profiler counts, and the work has been done as often as it wants instead of measured.
template <typename Work>
bool wasCounted(benchmark::State& state, Work&& work) {
  const int calls = callsToCount();
  if (calls == 0) return false;
  secondsEach(calls, work);
  for (auto _ : state)
    state.SetIterationTime(0);
  return true;
}

// One pair of samples for each iteration of `state`, each sample the mean of `batch` calls: work
// too short for the clock needs a larger batch. Makes the counters `median`, `p99`, `floor_median`,
// `floor_p99`, all in seconds, and `ratio`, that of the medians.
template <typename Floor, typename Work>
void measureInTurns(benchmark::State& state, int batch, Floor&& floor, Work&& work) {
  if (wasCounted(state, work)) return;
  Samples floorSamples;
  Samples samples;
  for (auto _ : state) {
    floorSamples.add(secondsEach(batch, floor));
    samples.add(secondsEach(batch, work));
    state.SetIterationTime(samples.last());
  }
  floorSamples.report(state, "floor_");
  samples.report(state, "");
  state.counters["ratio"] = samples.quantile(0.5) / floorSamples.quantile(0.5);
}

}  // namespace qvr::bench

#endif
