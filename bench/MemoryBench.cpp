// How much memory a host has resident because of the library.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench/InTurns.h"
#include "bench/ManagerHost.h"

namespace {

// What the program prints: how many bytes it has resident.
double residentBytesOf(const std::string& program) {
  FILE* const output = popen(("'" + program + "'").c_str(), "r");
  double bytes = 0;
  if (output == nullptr || std::fscanf(output, "%lf", &bytes) != 1 || pclose(output) != 0) {
    qvr::bench::fail(program + " fails");
  }
  return bytes;
}

void residentAfterRequests(benchmark::State& state) {
  qvr::bench::Samples beyondEmpty;
  for (auto _ : state) {
    const double empty = residentBytesOf(QVR_BENCH_HOSTS "/empty_host");
    beyondEmpty.add(residentBytesOf(QVR_BENCH_HOSTS "/token_host") - empty);
  }
  state.counters["resident_bytes"] = beyondEmpty.quantile(0.5);
}
BENCHMARK(residentAfterRequests)->Name("resident_after_1000_requests")->Iterations(11);

}  // namespace

BENCHMARK_MAIN();
