// How much memory a piece of work takes beyond what the process had before.
#ifndef QVR_BENCH_MEMORY_H
#define QVR_BENCH_MEMORY_H

#include <cstddef>

namespace qvr::bench {

// Bytes of this process that are resident.
std::size_t residentBytes();

// The largest resident size since its making. What the process had freed is given back first, so
// that taking it again counts.
class PeakMemory {
 public:
  PeakMemory();

  // Bytes beyond the resident size at the beginning.
  double bytes() const;

 private:
  std::size_t before_;
};

}  // namespace qvr::bench

#endif
