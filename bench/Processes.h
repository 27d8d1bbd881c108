// Runs whole programs and measures them: how long one takes from its start to its end, and the
// largest amount of memory it had resident.
#ifndef QVR_BENCH_PROCESSES_H
#define QVR_BENCH_PROCESSES_H

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace qvr::bench {

// A program with its arguments, the path first, and the variables of its environment, each
// NAME=VALUE. Its standard error is the benchmark's own.
class Program {
 public:
  Program(std::vector<std::string> arguments, std::vector<std::string> environment);

  // Starts it, reads all it prints and waits for its end. Ends the benchmark with a message when it
  // cannot be started, ends with another status than 0, or prints anything but `expectedOutput`.
  void run(const std::string& expectedOutput) const;

  // The same, for the largest size its resident memory had.
  std::size_t peakBytes(const std::string& expectedOutput) const;

 private:
  std::vector<std::string> arguments_;
  std::vector<std::string> environment_;
};

// One run of each for every iteration of `state`, after one that is not counted. Makes the counters
// of measureInTurns(), and `peak_bytes` and `floor_peak_bytes`.
void measureProgramsInTurns(benchmark::State& state, const Program& floor, const Program& program,
                            const std::string& expectedOutput);

}  // namespace qvr::bench

#endif
