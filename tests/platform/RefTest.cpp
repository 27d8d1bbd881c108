// The counted pointer.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "QVROAuth2Client/platform/Object.h"

namespace qvr {
namespace {

class Base : public Object {
 public:
  virtual std::string name() const { return "base"; }
};

class Derived final : public Base {
 public:
  explicit Derived(std::unique_ptr<int> content, bool* destroyed = nullptr)
      : content_(std::move(content)), destroyed_(destroyed) {}

  std::string name() const override { return "derived " + std::to_string(*content_); }

 private:
  ~Derived() override {
    if (destroyed_ != nullptr) *destroyed_ = true;
  }

  const std::unique_ptr<int> content_;
  bool* const destroyed_;
};

Ref<Derived> makeDerived(bool* destroyed = nullptr) {
  return makeRef<Derived>(std::make_unique<int>(7), destroyed);
}

TEST(RefTest, IsAsLargeAsAPointer) {
  static_assert(sizeof(Ref<Derived>) == sizeof(void*));
  static_assert(std::is_nothrow_move_constructible_v<Ref<Derived>>);
}

TEST(RefTest, IsNullUntilItIsGivenAnObject) {
  const Ref<Base> none;
  const Ref<Base> null = nullptr;
  EXPECT_FALSE(none);
  EXPECT_FALSE(null);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(none, null);
  EXPECT_EQ(none.get(), nullptr);
}

TEST(RefTest, MakeRefPassesArgumentsOnAndOwnsTheObjectAlone) {
  const Ref<Derived> object = makeDerived();
  EXPECT_EQ(object->name(), "derived 7");
  EXPECT_EQ((*object).name(), "derived 7");
  EXPECT_EQ(object->retainCount(), 1);
}

TEST(RefTest, DropsItsReferenceWhenItGoes) {
  bool destroyed = false;
  {
    const Ref<Derived> object = makeDerived(&destroyed);
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
}

TEST(RefTest, AdoptTakesOverAReferenceAndRetainAddsOne) {
  auto* const plain = new Derived(std::make_unique<int>(1));
  const Ref<Derived> adopted = Ref<Derived>::adopt(plain);
  EXPECT_EQ(plain->retainCount(), 1);
  const Ref<Derived> retained = Ref<Derived>::retain(plain);
  EXPECT_EQ(plain->retainCount(), 2);
  EXPECT_EQ(adopted, retained);
}

TEST(RefTest, AdoptAndRetainOfNullAreNull) {
  EXPECT_EQ(Ref<Derived>::adopt(nullptr), nullptr);
  EXPECT_EQ(Ref<Derived>::retain(nullptr), nullptr);
}

TEST(RefTest, LeakGivesTheReferenceToTheCaller) {
  bool destroyed = false;
  Ref<Derived> object = makeDerived(&destroyed);
  Derived* const plain = object.leak();
  EXPECT_EQ(object, nullptr);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(plain->retainCount(), 1);
  plain->release();
  EXPECT_TRUE(destroyed);
}

TEST(RefTest, CopyAddsAReferenceAndMoveDoesNot) {
  Ref<Derived> object = makeDerived();
  const Ref<Derived> copy = object;
  EXPECT_EQ(object->retainCount(), 2);
  const Ref<Derived> moved = std::move(object);
  EXPECT_EQ(object, nullptr);  // NOLINT(bugprone-use-after-move): moved from is null
  EXPECT_EQ(moved->retainCount(), 2);
  EXPECT_EQ(copy, moved);
}

TEST(RefTest, ConvertsToABaseAndToConst) {
  Ref<Derived> object = makeDerived();
  const Ref<Base> copied = object;
  const Ref<const Derived> constant = object;
  EXPECT_EQ(object->retainCount(), 3);
  const Ref<const Object> moved = std::move(object);
  EXPECT_EQ(object, nullptr);  // NOLINT(bugprone-use-after-move): moved from is null
  EXPECT_EQ(moved->retainCount(), 3);
  EXPECT_EQ(copied->name(), "derived 7");
  static_assert(!std::is_convertible_v<Ref<Base>, Ref<Derived>>);
  static_assert(!std::is_convertible_v<Ref<const Base>, Ref<Base>>);
}

TEST(RefTest, AssignmentDropsTheObjectThatWasThere) {
  bool destroyed = false;
  Ref<Derived> object = makeDerived(&destroyed);
  const Ref<Derived> other = makeDerived();
  object = other;
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(object, other);
  EXPECT_EQ(other->retainCount(), 2);
  object = nullptr;
  EXPECT_EQ(other->retainCount(), 1);
}

TEST(RefTest, SelfAssignmentKeepsTheObject) {
  bool destroyed = false;
  Ref<Derived> object = makeDerived(&destroyed);
  const Ref<Derived>& alias = object;
  object = alias;
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(object->retainCount(), 1);
}

TEST(RefTest, ComparesByIdentity) {
  const Ref<Derived> one = makeDerived();
  const Ref<Derived> equalContent = makeDerived();
  EXPECT_NE(one, equalContent);
  EXPECT_EQ(one, Ref<Derived>(one));
  EXPECT_NE(one, nullptr);
}

}  // namespace
}  // namespace qvr
