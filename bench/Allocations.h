// Counts what the whole process allocates while a piece of work runs. Outside that the hook is one
// branch, so that nothing that is timed pays for it.
#ifndef QVR_BENCH_ALLOCATIONS_H
#define QVR_BENCH_ALLOCATIONS_H

#include <cstddef>

namespace qvr::bench {

class AllocationCount {
 public:
  AllocationCount();  // counting begins
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  std::size_t count() const;
};

// How many allocations one call of `work` makes, in whatever thread. The first call is not counted:
// it makes what is made once.
template <typename Work>
double allocationsOf(Work&& work) {
  work();
  const AllocationCount allocations;
  work();
  return static_cast<double>(allocations.count());
}

}  // namespace qvr::bench

#endif
