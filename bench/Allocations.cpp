#include "bench/Allocations.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::size_t> allocationCount{0};

void noteAllocation() {
  if (isCounting.load(std::memory_order_relaxed)) ++allocationCount;
}

}  // namespace

// The C library's own functions, which these stand before; operator new calls malloc. Its free()
// stays, since the memory is its own.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
  noteAllocation();
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  noteAllocation();
  return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  noteAllocation();
  return __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  noteAllocation();
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  noteAllocation();
  void* const made = __libc_memalign(alignment, size);
  if (made == nullptr) return ENOMEM;
  *memory = made;
  return 0;
}
}

namespace qvr::bench {

AllocationCount::AllocationCount() {
  allocationCount = 0;
  isCounting = true;
}

AllocationCount::~AllocationCount() {
  isCounting = false;
}

std::size_t AllocationCount::count() const {
  return allocationCount;
}

}  // namespace qvr::bench
