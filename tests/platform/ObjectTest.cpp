// The counted root class.

#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "QVROAuth2Client/platform/Object.h"
#include "tests/support/Countdown.h"

namespace qvr {
namespace {

constexpr std::size_t kThreads = 8;
constexpr std::size_t kAllBits = std::numeric_limits<std::size_t>::max();

// Tells its test when it is destroyed, and with what its users left in it.
class Counted final : public Object {
 public:
  explicit Counted(std::size_t* sumAtDestruction) : sumAtDestruction_(sumAtDestruction) {}

  using Object::makeImmortal;
  std::array<std::size_t, kThreads> slots{};

  // An immortal object goes only by its owner's hand.
  ~Counted() override {
    *sumAtDestruction_ = 0;
    for (const std::size_t slot : slots)
      *sumAtDestruction_ += slot;
  }

 private:
  std::size_t* const sumAtDestruction_;
};

constexpr std::size_t kAlive = kAllBits;

TEST(ObjectTest, NewObjectHasOneReference) {
  std::size_t sum = kAlive;
  auto* const object = new Counted(&sum);
  EXPECT_EQ(object->retainCount(), 1);
  object->release();
  EXPECT_EQ(sum, 0);
}

TEST(ObjectTest, RetainAddsAReferenceAndReleaseDropsOne) {
  std::size_t sum = kAlive;
  auto* const object = new Counted(&sum);
  object->retain();
  object->retain();
  EXPECT_EQ(object->retainCount(), 3);
  object->release();
  object->release();
  EXPECT_EQ(object->retainCount(), 1);
  EXPECT_EQ(sum, kAlive);
  object->release();
  EXPECT_EQ(sum, 0);
}

TEST(ObjectTest, ImmortalObjectHasAllBitsSetAndIgnoresRetainAndRelease) {
  std::size_t sum = kAlive;
  auto* const object = new Counted(&sum);
  object->makeImmortal();
  for (int i = 0; i < 3; ++i) {
    object->release();
    EXPECT_EQ(object->retainCount(), kAllBits);
  }
  object->retain();
  EXPECT_EQ(object->retainCount(), kAllBits);
  EXPECT_EQ(sum, kAlive);
  delete object;
}

TEST(ObjectTest, NoReferenceIsLostBetweenThreads) {
  std::size_t sum = kAlive;
  auto* const object = new Counted(&sum);
  support::runOnThreads(kThreads, [object](std::size_t) {
    for (int i = 0; i < 10000; ++i)
      object->retain();
    for (int i = 0; i < 10000; ++i)
      object->release();
  });
  EXPECT_EQ(object->retainCount(), 1);
  object->release();
  EXPECT_EQ(sum, 0);
}

TEST(ObjectTest, DestructionSeesWhatEveryThreadDidBeforeItsRelease) {
  std::size_t sum = kAlive;
  auto* const object = new Counted(&sum);
  for (std::size_t i = 1; i < kThreads; ++i)
    object->retain();
  support::runOnThreads(kThreads, [object](std::size_t index) {
    object->slots[index] = index + 1;
    object->release();
  });
  EXPECT_EQ(sum, kThreads * (kThreads + 1) / 2);
}

}  // namespace
}  // namespace qvr
