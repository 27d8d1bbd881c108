#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <thread>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"

namespace ports_test {
namespace {

using Numbers = std::array<std::uint32_t, 16>;

// So many that two callers get the same ones only when they get the same bytes.
Numbers drawn(qvr::RandomSource& source) {
  Numbers numbers{};
  std::ranges::generate(numbers, [&source] { return source.uniform(50'000); });
  return numbers;
}

// What a forked child draws, as it reports through a pipe.
Numbers drawnInChild(qvr::RandomSource& source) {
  Numbers numbers{};
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    numbers = drawn(source);
    const bool isWritten = write(ends[1], numbers.data(), sizeof numbers) == sizeof numbers;
    _exit(isWritten ? 0 : 1);
  }
  close(ends[1]);
  EXPECT_EQ(read(ends[0], numbers.data(), sizeof numbers), ssize_t{sizeof numbers});
  close(ends[0]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  return numbers;
}

TEST(RandomSourceTest, FillsTheWholeBufferDifferentlyEachTime) {
  const auto source = qvr::makeRandomSource();
  std::set<qvr::Data> seen;
  for (int turn = 0; turn < 100; ++turn) {
    qvr::Data buffer(32);
    ASSERT_EQ(source->copyBytes(buffer), 0);
    seen.insert(buffer);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(RandomSourceTest, FillsLongBuffersToTheEndAndEmptyOnesToo) {
  const auto source = qvr::makeRandomSource();
  qvr::Data buffer(1 << 20);
  ASSERT_EQ(source->copyBytes(buffer), 0);
  // 64 zeros in a row, anywhere, would be a part that was left out.
  EXPECT_EQ(std::search_n(buffer.begin(), buffer.end(), 64, 0), buffer.end());
  EXPECT_EQ(source->copyBytes({}), 0);
}

TEST(RandomSourceTest, UniformStaysBelowItsBoundAndReachesEveryNumber) {
  const auto source = qvr::makeRandomSource();
  for (const std::uint32_t bound : {1u, 2u, 3u, 66u, 256u, 257u}) {
    std::set<std::uint32_t> seen;
    for (std::uint32_t turn = 0; turn < 40 * bound; ++turn) {
      const std::uint32_t number = source->uniform(bound);
      ASSERT_LT(number, bound);
      seen.insert(number);
    }
    EXPECT_EQ(seen.size(), bound);
  }
  EXPECT_EQ(source->uniform(0), 0u);
}

TEST(RandomSourceTest, UniformReachesBothHalvesBelowLargeBounds) {
  const auto source = qvr::makeRandomSource();
  for (const std::uint32_t bound : {0xFFFFu, 0x10000u, 0x10001u, 0x80000001u, 0xFFFFFFFFu}) {
    std::array<int, 2> halves{};
    for (int turn = 0; turn < 100; ++turn) {
      const std::uint32_t number = source->uniform(bound);
      ASSERT_LT(number, bound);
      ++halves.at(number < bound / 2 ? 0 : 1);
    }
    EXPECT_GT(halves[0], 0) << bound;
    EXPECT_GT(halves[1], 0) << bound;
  }
}

// 16 bits spread over 49,152 numbers, none of them left out, give every third number twice as often
// as the others. The limits are seven standard deviations away.
TEST(RandomSourceTest, NoNumberIsLikelierThanAnother) {
  const auto source = qvr::makeRandomSource();
  constexpr std::uint32_t kBound = 49'152;
  constexpr int kTurns = 90'000;
  std::array<int, 3> thirds{};
  for (int turn = 0; turn < kTurns; ++turn)
    ++thirds.at(source->uniform(kBound) % 3);
  for (const int count : thirds)
    EXPECT_NEAR(count, kTurns / 3, 1000);
}

TEST(RandomSourceTest, AForkedChildDrawsOtherNumbersThanItsParent) {
  const auto source = qvr::makeRandomSource();
  std::set<Numbers> seen{drawn(*source)};
  seen.insert(drawnInChild(*source));
  seen.insert(drawnInChild(*source));
  seen.insert(drawn(*source));
  EXPECT_EQ(seen.size(), 4u);
}

TEST(RandomSourceTest, ServesManyThreads) {
  const auto source = qvr::makeRandomSource();
  std::vector<std::thread> threads;
  std::array<qvr::Data, 4> buffers;
  std::array<Numbers, 4> numbers;
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    threads.emplace_back([&source, &buffer = buffers.at(i), &number = numbers.at(i)] {
      buffer.resize(16);
      EXPECT_EQ(source->copyBytes(buffer), 0);
      number = drawn(*source);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(std::set<qvr::Data>(buffers.begin(), buffers.end()).size(), 4u);
  EXPECT_EQ(std::set<Numbers>(numbers.begin(), numbers.end()).size(), 4u);
}

}  // namespace
}  // namespace ports_test
