// What a host should do about an error.

#include <gtest/gtest.h>

#include <string_view>

#include "QVROAuth2Client/QVROAuth2Error.h"

namespace {

constexpr auto kLater = QVROAuth2Advice::kTryAgainLater;
constexpr auto kSignIn = QVROAuth2Advice::kSignInAgain;
constexpr auto kNothing = QVROAuth2Advice::kNothingStored;
constexpr auto kLasting = QVROAuth2Advice::kLasting;

struct AdviceCase {
  std::int64_t code;
  QVROAuth2Advice advice;
};

template <std::size_t N>
void expectAdvice(std::string_view domain, const AdviceCase (&cases)[N]) {
  for (const AdviceCase& expected : cases) {
    const auto error = qvr::Error::errorWithDomain(domain, expected.code);
    EXPECT_EQ(QVROAuth2AdviceForError(error), expected.advice) << domain << ' ' << expected.code;
  }
}

TEST(AdviceTest, ProtocolErrorsThatLoseTheGrantAskForANewSignIn) {
  expectAdvice(QVROAuth2ErrorDomain,
               {{0, kLasting},  {1, kLasting},   {2, kLasting},   {3, kLasting},  {4, kLasting},
                {5, kLasting},  {6, kLater},     {7, kLater},     {8, kLasting},  {9, kSignIn},
                {10, kLasting}, {11, kLasting},  {12, kLasting},  {13, kLasting}, {14, kLasting},
                {15, kLasting}, {16, kSignIn},   {17, kSignIn},   {18, kSignIn},  {19, kLasting},
                {-1, kLasting}, {429, kLasting}, {3840, kLasting}});
}

TEST(AdviceTest, ServerFailuresAndTooManyRequestsPass) {
  expectAdvice(QVROAuth2HTTPErrorDomain, {{100, kLasting},
                                          {201, kLasting},
                                          {204, kLasting},
                                          {302, kLasting},
                                          {404, kLasting},
                                          {428, kLasting},
                                          {429, kLater},
                                          {430, kLasting},
                                          {499, kLasting},
                                          {500, kLater},
                                          {503, kLater},
                                          {599, kLater},
                                          {600, kLasting},
                                          {9, kLasting}});
}

TEST(AdviceTest, FailuresOfTheNetworkPass) {
  expectAdvice(qvr::NSURLErrorDomain,
               {{-1, kLater},       {-999, kLasting},  {-1000, kLasting}, {-1001, kLater},
                {-1002, kLasting},  {-1003, kLater},   {-1004, kLater},   {-1005, kLater},
                {-1009, kLater},    {-1012, kLasting}, {-1015, kLasting}, {-1017, kLasting},
                {-1100, kLasting},  {-1103, kLasting}, {-1200, kLasting}, {-1201, kLasting},
                {-1202, kLasting},  {-1204, kLasting}, {-1206, kLasting}, {0, kLasting},
                {-25300, kLasting}, {500, kLasting}});
}

TEST(AdviceTest, KeychainStatusesTellAbsentFromAwayAndLocked) {
  expectAdvice(qvr::NSOSStatusErrorDomain, {{-25300, kNothing},
                                            {-25291, kLater},
                                            {-25308, kLater},
                                            {-25299, kLasting},
                                            {-128, kLasting},
                                            {-25293, kLasting},
                                            {-36, kLasting},
                                            {-34, kLasting},
                                            {-61, kLasting},
                                            {-26275, kLasting},
                                            {-25295, kLasting},
                                            {-50, kLasting},
                                            {-108, kLasting},
                                            {-1, kLasting},
                                            {0, kLasting}});
}

TEST(AdviceTest, AnUnreadableBodyPassesAndADamagedArchiveDoesNot) {
  expectAdvice(
      qvr::NSCocoaErrorDomain,
      {{3840, kLater}, {4864, kLasting}, {4865, kLasting}, {4866, kLasting}, {-1, kLasting}});
}

TEST(AdviceTest, EverythingElseIsLasting) {
  expectAdvice("org.example.other",
               {{-25300, kLasting}, {9, kLasting}, {503, kLasting}, {3840, kLasting}});
  EXPECT_EQ(QVROAuth2AdviceForError(nullptr), kLasting);
}

}  // namespace
