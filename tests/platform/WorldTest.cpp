// The process-wide state and the world that a test puts in its place.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/World.h"
#include "tests/support/Countdown.h"
#include "tests/support/ManualQueue.h"

namespace qvr {
namespace {

using testing::ElementsAre;

// Notes when a piece of state is made and destroyed.
std::vector<std::string>& events() {
  static std::vector<std::string> noted;
  return noted;
}

struct Inner {
  Inner() { events().push_back("inner made"); }
  ~Inner() { events().push_back("inner destroyed"); }
  int value = 0;
};

struct Outer {
  Outer() { events().push_back("outer made"); }
  ~Outer() { events().push_back("outer destroyed"); }
  Inner& inner = World::current().state<Inner>();
};

class WorldTest : public testing::Test {
 protected:
  WorldTest() { events().clear(); }
};

TEST_F(WorldTest, StateIsMadeOnFirstUseAndThenStays) {
  const ScopedWorld world;
  EXPECT_THAT(events(), ElementsAre());
  Inner& inner = World::current().state<Inner>();
  EXPECT_EQ(&World::current().state<Inner>(), &inner);
  EXPECT_THAT(events(), ElementsAre("inner made"));
}

TEST_F(WorldTest, StateMayUseOtherStateAndGoesInReverseOrder) {
  {
    const ScopedWorld world;
    EXPECT_EQ(&World::current().state<Outer>().inner, &World::current().state<Inner>());
  }
  EXPECT_THAT(events(),
              ElementsAre("inner made", "outer made", "outer destroyed", "inner destroyed"));
}

TEST_F(WorldTest, WorldsNestAndEachHasItsOwnState) {
  const ScopedWorld outer;
  World::current().state<Inner>().value = 1;
  {
    const ScopedWorld inner;
    EXPECT_EQ(World::current().state<Inner>().value, 0);
    World::current().state<Inner>().value = 2;
  }
  EXPECT_EQ(World::current().state<Inner>().value, 1);
}

TEST_F(WorldTest, StateIsMadeOnceHoweverManyThreadsAsk) {
  const ScopedWorld world;
  std::atomic<Inner*> seen{nullptr};
  std::atomic<int> others{0};
  support::runOnThreads(8, [&](std::size_t) {
    Inner* const mine = &World::current().state<Inner>();
    Inner* expected = nullptr;
    if (!seen.compare_exchange_strong(expected, mine) && expected != mine) ++others;
  });
  EXPECT_EQ(others, 0);
  EXPECT_THAT(events(), ElementsAre("inner made"));
}

TEST_F(WorldTest, StateWhoseMakingRaisesIsMadeAnew) {
  struct Fickle {
    Fickle() {
      if (World::current().state<Inner>().value++ == 0) throw RangeException("not yet");
    }
  };
  const ScopedWorld world;
  EXPECT_THROW(World::current().state<Fickle>(), RangeException);
  EXPECT_NO_THROW(World::current().state<Fickle>());
}

TEST_F(WorldTest, SettingsAreTakenOnceAndLeftAloneAfterwards) {
  const ScopedWorld scoped;
  World& world = World::current();
  World::Settings first;
  first.bundleIdentifier = "one";
  world.install(std::move(first));
  World::Settings second;
  second.bundleIdentifier = "two";
  EXPECT_THROW(world.install(std::move(second)), InternalInconsistencyException);
  EXPECT_EQ(world.settings().bundleIdentifier, "one");
  EXPECT_EQ(second.bundleIdentifier, "two");
}

TEST_F(WorldTest, ReadingTheSettingsIsTheFirstUse) {
  const ScopedWorld scoped;
  EXPECT_EQ(World::current().settings().bundleIdentifier, std::nullopt);
  EXPECT_THROW(World::current().install({}), InternalInconsistencyException);
}

TEST_F(WorldTest, SettingsMayBeReadByManyThreadsFromTheStart) {
  const ScopedWorld scoped;
  std::atomic<int> right{0};
  support::runOnThreads(8, [&](std::size_t) {
    right += World::current().settings().googleTokenHost == "oauth2.googleapis.com" ? 1 : 0;
  });
  EXPECT_EQ(right, 8);
}

TEST_F(WorldTest, OnlyOneOfManyInstallsSucceeds) {
  const ScopedWorld scoped;
  std::atomic<int> installed{0};
  std::atomic<int> raised{0};
  support::runOnThreads(8, [&](std::size_t) {
    try {
      World::current().install({});
      ++installed;
    } catch (const InternalInconsistencyException&) {
      ++raised;
    }
  });
  EXPECT_EQ(installed, 1);
  EXPECT_EQ(raised, 7);
}

TEST_F(WorldTest, TextIsItsOwnTranslationUntilThereIsOne) {
  const ScopedWorld scoped;
  World::Settings settings;
  settings.localizedStrings.emplace(", ", "; ");
  settings.localizedStrings.emplace("empty", "");
  World::current().install(std::move(settings));
  EXPECT_EQ(World::current().localizedString(", "), "; ");
  EXPECT_EQ(World::current().localizedString("empty"), "");
  EXPECT_EQ(World::current().localizedString("other"), "other");
}

TEST_F(WorldTest, UnsetSeamsAreTheLibrarysPortsEachMadeOnce) {
  const ScopedWorld scoped;
  World& world = World::current();
  ASSERT_TRUE(world.urlSession() && world.workspace() && world.randomSource());
  EXPECT_EQ(world.urlSession(), world.urlSession());
  EXPECT_EQ(world.workspace(), world.workspace());
  EXPECT_EQ(world.randomSource(), world.randomSource());
  EXPECT_GT(world.now().timeIntervalSinceReferenceDate, 7.0e8);  // later than March 2023
}

TEST_F(WorldTest, QueuesComeFromTheHostsFactoryOrAreSerialQueues) {
  support::ManualQueues queues;
  {
    const ScopedWorld scoped;
    World::Settings settings;
    settings.serialQueueFactory = [&queues](const std::string& label) {
      return queues.make(label);
    };
    World::current().install(std::move(settings));
    const Ref<Executor> queue = World::current().makeSerialQueue("a");
    EXPECT_EQ(queue, queues.named("a"));
  }
  const ScopedWorld scoped;
  const Ref<Executor> queue = World::current().makeSerialQueue("b");
  EXPECT_EQ(queue->label(), "b");
  EXPECT_TRUE(support::drain(queue));
  EXPECT_THAT(queues.labels(), ElementsAre("a"));
}

TEST_F(WorldTest, AKeychainThatTheHostDidNotChooseRaises) {
  const ScopedWorld scoped;
  try {
    (void)World::current().keychainItems();
    FAIL() << "a keychain was made up";
  } catch (const InternalInconsistencyException& exception) {
    EXPECT_EQ(exception.reason(),
              "*** QVROAuth2Host: no keychain; call setKeychainItems() before install()");
  }
}

}  // namespace
}  // namespace qvr
