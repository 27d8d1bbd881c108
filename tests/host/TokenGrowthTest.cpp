// Ten thousand runs of `token` in one process: what a run takes of memory, descriptors and threads,
// it gives back.
#include <malloc.h>

#include <cstddef>
#include <filesystem>
#include <iterator>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/Setup.h"
#include "tests/host/CommandTest.h"

#if defined(__has_feature)
#define QVR_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QVR_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    QVR_HAS_FEATURE(address_sanitizer) || QVR_HAS_FEATURE(thread_sanitizer)
#define QVR_SANITIZER_ALLOCATES 1
// Not every compiler brings the header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#define QVR_SANITIZER_ALLOCATES 0
#endif

namespace host_test {
namespace {

constexpr int kWarmUp = 1000;
constexpr int kRuns = 10000;
constexpr int kRefreshEvery = 100;
constexpr const char* kAnswer =
    R"({"access_token":"new-access","token_type":"Bearer","expires_in":3600})";

// Bytes that are allocated and not freed. A sanitizer has an allocator of its own, of which the C
// library knows nothing.
std::size_t allocatedBytes() {
#if QVR_SANITIZER_ALLOCATES
  return __sanitizer_get_current_allocated_bytes();
#else
  const auto information = mallinfo2();
  return information.uordblks + information.hblkhd;
#endif
}

std::ptrdiff_t entriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

class TokenGrowthTest : public CommandTest {
 protected:
  // On the file keychain: one that is in memory would hide what is left of a file.
  void installOnFiles() {
    const auto failure = host::installHost(
        configuration, {session,
                        qvr::makeEncryptedFileKeychain(
                            {.directory = folder_.file("items"), .keyFile = folder_.file("key")}),
                        nullptr, [now = clock] { return qvr::Date{*now}; }});
    ASSERT_FALSE(failure) << failure->sentence;
    store(google, record("access", "refresh", 3600));
  }

  // Runs `token` so often, now and then with a refresh, and expects every run to succeed.
  void runOften(int runs) {
    int done = 0;
    collect([&] {
      for (int run = 0; run < runs; ++run) {
        const bool refreshes = run % kRefreshEvery == 0;
        if (refreshes) session->answerWith({200, kAnswer});
        host::TokenOptions options{google};
        options.forceRefresh = refreshes;
        done += host::token(configuration, options) == host::kDone;
      }
      return 0;
    });
    EXPECT_EQ(done, runs);
  }

  support::TemporaryFolder folder_;
};

// The session of the test keeps the text of each of the hundred requests, some 25 KB.
TEST_F(TokenGrowthTest, TenThousandRunsLeaveNoMemoryDescriptorThreadOrFileBehind) {
  const ScopedVariable runtime("XDG_RUNTIME_DIR", folder_.file("run"));
  ASSERT_NO_FATAL_FAILURE(installOnFiles());
  runOften(kWarmUp);
  const std::size_t bytes = allocatedBytes();
  const auto descriptors = entriesOf("/proc/self/fd");
  const auto threads = entriesOf("/proc/self/task");
  const auto files = entriesOf(folder_.file("items").c_str());
  runOften(kRuns);
  EXPECT_LT(allocatedBytes(), bytes + 128 * 1024) << "less than 14 bytes a run";
  EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
  EXPECT_EQ(entriesOf("/proc/self/task"), threads);
  EXPECT_EQ(entriesOf(folder_.file("items").c_str()), files);
}

}  // namespace
}  // namespace host_test
