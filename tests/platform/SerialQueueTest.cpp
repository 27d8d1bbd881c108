// The serial executor, on its real thread.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

#include "QVROAuth2Client/platform/Exception.h"
#include "QVROAuth2Client/platform/Executor.h"
#include "tests/support/Countdown.h"

namespace qvr {
namespace {

using support::Countdown;
using support::drain;

std::vector<int> numbersTo(int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

TEST(SerialQueueTest, HasTheLabelItWasMadeWith) {
  EXPECT_EQ(makeSerialQueue("org.example.queue")->label(), "org.example.queue");
  EXPECT_EQ(makeSerialQueue("")->label(), "");
}

TEST(SerialQueueTest, RunsFunctionsInTheOrderInWhichTheyWereHandedOver) {
  const Ref<Executor> queue = makeSerialQueue("q");
  std::vector<int> ran;
  for (int i = 0; i < 1000; ++i)
    queue->async([&ran, i] { ran.push_back(i); });
  ASSERT_TRUE(drain(queue));
  EXPECT_EQ(ran, numbersTo(1000));
}

TEST(SerialQueueTest, KeepsTheOrderOfEveryThread) {
  constexpr std::size_t kThreads = 8;
  const Ref<Executor> queue = makeSerialQueue("q");
  std::vector<std::vector<int>> ran(kThreads);
  support::runOnThreads(kThreads, [&](std::size_t thread) {
    for (int i = 0; i < 500; ++i)
      queue->async([&ran, thread, i] { ran[thread].push_back(i); });
  });
  ASSERT_TRUE(drain(queue));
  for (const std::vector<int>& numbers : ran)
    EXPECT_EQ(numbers, numbersTo(500));
}

TEST(SerialQueueTest, RunsOneFunctionAtATimeOnOneThread) {
  const Ref<Executor> queue = makeSerialQueue("q");
  std::atomic<int> running{0};
  bool overlapped = false;
  std::vector<std::thread::id> threads;
  support::runOnThreads(4, [&](std::size_t) {
    for (int i = 0; i < 200; ++i) {
      queue->async([&] {
        overlapped |= ++running != 1;
        threads.push_back(std::this_thread::get_id());
        --running;
      });
    }
  });
  ASSERT_TRUE(drain(queue));
  EXPECT_FALSE(overlapped);
  ASSERT_EQ(threads.size(), 800);
  EXPECT_THAT(threads, testing::Each(threads.front()));
  EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(SerialQueueTest, AsyncReturnsWhileAnEarlierFunctionStillRuns) {
  const Ref<Executor> queue = makeSerialQueue("q");
  Countdown released;
  bool ran = false;
  bool wasReleased = false;
  queue->async([&] { wasReleased = released.wait(); });
  queue->async([&] { ran = true; });  // would wait for ever if it ran here
  released.arrive();
  ASSERT_TRUE(drain(queue));
  EXPECT_TRUE(wasReleased);
  EXPECT_TRUE(ran);
}

TEST(SerialQueueTest, ARunningFunctionMayHandOverAnother) {
  const Ref<Executor> queue = makeSerialQueue("q");
  std::vector<int> ran;
  Countdown done;
  queue->async([&] {
    queue->async([&] {
      ran.push_back(2);
      done.arrive();
    });
    ran.push_back(1);  // the other one runs later, never inside async()
  });
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST(SerialQueueTest, WhatIsWaitingIsRunWhenTheLastReferenceGoes) {
  Ref<Executor> queue = makeSerialQueue("q");
  Countdown released;
  Countdown ran(100);
  queue->async([&] { (void)released.wait(); });
  for (int i = 0; i < 100; ++i)
    queue->async([&ran] { ran.arrive(); });
  queue = nullptr;
  released.arrive();
  EXPECT_TRUE(ran.wait());
}

TEST(SerialQueueTest, AFunctionMayHoldTheLastReferenceToItsQueue) {
  Ref<Executor> queue = makeSerialQueue("q");
  Countdown ran;
  Executor* const plain = queue.get();
  plain->async([&ran, queue = std::move(queue)] {
    EXPECT_EQ(queue->label(), "q");
    ran.arrive();
  });
  EXPECT_TRUE(ran.wait());
}

TEST(SerialQueueTest, AFunctionIsReleasedBeforeTheNextOneRuns) {
  const Ref<Executor> queue = makeSerialQueue("q");
  const auto held = std::make_shared<int>(1);
  queue->async([held] {});
  ASSERT_TRUE(drain(queue));
  EXPECT_EQ(held.use_count(), 1);
}

TEST(SerialQueueTest, QueuesDoNotWaitForEachOther) {
  const Ref<Executor> one = makeSerialQueue("one");
  const Ref<Executor> other = makeSerialQueue("other");
  Countdown meeting(2);
  std::atomic<int> met{0};
  for (const Ref<Executor>& queue : {one, other})
    queue->async([&] { met += meeting.meet() ? 1 : 0; });
  ASSERT_TRUE(drain(one));
  ASSERT_TRUE(drain(other));
  EXPECT_EQ(met, 2);
}

void throwOnAQueue() {
  const Ref<Executor> queue = makeSerialQueue("q");
  queue->async([] { throw InvalidArgumentException("*** the reason"); });
  (void)drain(queue);
}

TEST(SerialQueueDeathTest, AnExceptionEndsTheProcessAndIsNamedOnStandardError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(throwOnAQueue(), "NSInvalidArgumentException: \\*\\*\\* the reason");
}

}  // namespace
}  // namespace qvr
