#include <pthread.h>
#include <sodium.h>
#include <sys/random.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <exception>

#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/Sodium.h"

namespace qvr {
namespace {

// Asks the kernel rather than libsodium, which ends the process where this reports a failure.
bool fillFromKernel(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = getrandom(bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

// How often this process has forked off from another since its first pool was filled.
std::atomic<std::uint32_t> forkCount{0};

void countForks() {
  static const bool isCounted = pthread_atfork(nullptr, nullptr, [] {
                                  forkCount.fetch_add(1, std::memory_order_relaxed);
                                }) == 0;
  if (!isCounted) std::terminate();
}

// Random bytes that were fetched and not handed out yet, one pool for each thread: a verifier takes
// hundreds, and a system call for each pair would cost many times the rest. Bytes are wiped as they
// are handed out, so what stands here was never used; and a child of fork() leaves what it has got
// from its parent. (One of a bare clone(2) cannot know, and may not use the library before exec.)
class RandomPool {
 public:
  std::uint16_t takePair() {
    if (next_ == kSize || fork_ != forkCount.load(std::memory_order_relaxed)) refill();
    const auto pair = static_cast<std::uint16_t>(bytes_[next_] << 8 | bytes_[next_ + 1]);
    bytes_[next_++] = 0;
    bytes_[next_++] = 0;
    return pair;
  }

 private:
  static constexpr std::size_t kSize = 512;

  void refill() {
    countForks();
    fork_ = forkCount.load(std::memory_order_relaxed);
    if (!fillFromKernel(bytes_)) std::terminate();
    next_ = 0;
  }

  std::array<std::uint8_t, kSize> bytes_{};
  std::size_t next_ = kSize;
  std::uint32_t fork_ = 0;
};

// Made by the compiler, so that no access checks whether it was made.
constinit thread_local RandomPool threadsPool;

constexpr std::uint32_t kPairs = 1U << 16;

// The product's upper half is a number below the bound. For some numbers there is one product more
// than for others, unless those are left out whose lower half is below kPairs % bound (Lemire,
// "Fast Random Integer Generation in an Interval", 2019). That is one in a thousand for small
// bounds; with single bytes it would be one in five, which the processor cannot foresee.
std::uint32_t uniformFromPairs(RandomPool& pool, std::uint32_t upperBound) {
  for (;;) {
    const std::uint32_t product = pool.takePair() * upperBound;
    const std::uint32_t lower = product % kPairs;
    if (lower >= upperBound || lower >= kPairs % upperBound) return product / kPairs;
  }
}

class SystemRandomSource final : public RandomSource {
 public:
  std::int32_t copyBytes(std::span<std::uint8_t> bytes) override {
    return fillFromKernel(bytes) ? errSecSuccess : errSecIO;
  }

  std::uint32_t uniform(std::uint32_t upperBound) override {
    if (upperBound < kPairs) return uniformFromPairs(threadsPool, upperBound);
    initializeSodium();
    return randombytes_uniform(upperBound);
  }
};

}  // namespace

inline namespace v1 {

Ref<RandomSource> makeRandomSource() {
  return makeRef<SystemRandomSource>();
}

}  // namespace v1
}  // namespace qvr
