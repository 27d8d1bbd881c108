// The exceptions of programming errors.

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "QVROAuth2Client/platform/Exception.h"

namespace qvr {
namespace {

TEST(ExceptionTest, EachKindHasItsName) {
  EXPECT_EQ(InvalidArgumentException("r").name(), "NSInvalidArgumentException");
  EXPECT_EQ(InternalInconsistencyException("r").name(), "NSInternalInconsistencyException");
  EXPECT_EQ(RangeException("r").name(), "NSRangeException");
  EXPECT_EQ(Exception("OfItsOwn", "r").name(), "OfItsOwn");
}

TEST(ExceptionTest, WhatIsNameAndReason) {
  const RangeException exception("*** the reason");
  EXPECT_EQ(exception.reason(), "*** the reason");
  EXPECT_STREQ(exception.what(), "NSRangeException: *** the reason");
}

TEST(ExceptionTest, AbsentReasonPrintsAsNull) {
  const InvalidArgumentException exception(nullptr);
  EXPECT_EQ(exception.reason(), std::nullopt);
  EXPECT_STREQ(exception.what(), "NSInvalidArgumentException: (null)");
  EXPECT_EQ(InvalidArgumentException("").reason(), "");
}

TEST(ExceptionTest, TextsAreCopied) {
  std::string reason = "before";
  const InvalidArgumentException exception(reason);
  reason = "after!";
  EXPECT_EQ(exception.reason(), "before");
}

TEST(ExceptionTest, CopiesShareTheirContent) {
  const RangeException original("r");
  const RangeException copy = original;
  EXPECT_EQ(&copy.reason(), &original.reason());
  EXPECT_EQ(copy.what(), original.what());
  static_assert(std::is_nothrow_copy_constructible_v<RangeException>,
                "what is thrown may be copied while another exception flies");
}

TEST(ExceptionTest, AMovedFromExceptionStillAnswers) {
  RangeException original("r");
  const RangeException moved = std::move(original);
  EXPECT_STREQ(moved.what(), "NSRangeException: r");
  EXPECT_STREQ(original.what(), "NSRangeException: r");  // NOLINT(bugprone-use-after-move)
}

TEST(ExceptionTest, IsCaughtByEveryAncestor) {
  EXPECT_THROW(throw RangeException("r"), Exception);
  EXPECT_THROW(throw InvalidArgumentException("r"), std::exception);
  EXPECT_THROW(throw InternalInconsistencyException("r"), InternalInconsistencyException);
}

}  // namespace
}  // namespace qvr
