// The random values of an attempt: state, code verifier, and the verifier's challenge.

#include <numeric>
#include <set>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"
#include "tests/client/TestClients.h"

namespace {

using support::IsErrorWithoutUserInfo;
using support::TestClient;
using testing::ElementsAre;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

// Answers from the given numbers, and remembers what it was asked for.
class ScriptedRandomSource final : public qvr::RandomSource {
 public:
  std::int32_t copyBytes(std::span<std::uint8_t> bytes) override {
    byteCounts.push_back(bytes.size());
    std::iota(bytes.begin(), bytes.end(), firstByte);
    return 0;
  }
  std::uint32_t uniform(std::uint32_t upperBound) override {
    bounds.push_back(upperBound);
    return nextIndex++ % upperBound;
  }

  std::uint8_t firstByte = 0;
  std::uint32_t nextIndex = 0;
  std::vector<std::size_t> byteCounts;
  std::vector<std::uint32_t> bounds;
};

class PKCETest : public support::LibraryTest {
 protected:
  PKCETest() {
    host.setRandomSource(scripted);
    installHost();
  }
  qvr::Ref<ScriptedRandomSource> scripted = qvr::makeRef<ScriptedRandomSource>();
};

class FailingRandomSourceTest : public support::LibraryTest {
 protected:
  FailingRandomSourceTest() { installHost(); }
};

TEST_F(PKCETest, AStateIsThirtyTwoBytesInStandardBase64) {
  const qvr::Text state = TestClient::generateRandomBytesAndReturnError();
  EXPECT_THAT(scripted->byteCounts, ElementsAre(32u));
  EXPECT_EQ(state, "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=");
}

TEST_F(PKCETest, AStateIsNotInBase64URL) {
  scripted->firstByte = 0xE0;
  EXPECT_EQ(TestClient::generateRandomBytesAndReturnError(),
            "4OHi4+Tl5ufo6err7O3u7/Dx8vP09fb3+Pn6+/z9/v8=");
}

TEST_F(PKCETest, AStateHasFortyFourCharactersOfWhichTheLastIsTheOnlyPadding) {
  for (std::uint8_t first = 0; first < 64; ++first) {
    scripted->firstByte = first;
    const std::string state = TestClient::generateRandomBytesAndReturnError().value();
    EXPECT_EQ(state.size(), 44u);
    EXPECT_EQ(state.find('='), 43u);
    EXPECT_EQ(
        state.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"),
        43u);
  }
}

TEST_F(PKCETest, AStateLeavesTheErrorOutParameterAlone) {
  qvr::ErrorPtr error;
  EXPECT_TRUE(TestClient::generateRandomBytesAndReturnError(&error).has_value());
  EXPECT_FALSE(error);
}

TEST_F(FailingRandomSourceTest, AFailedGeneratorGivesNoStateAndItsStatus) {
  random->status = -25291;
  qvr::ErrorPtr error;
  EXPECT_EQ(TestClient::generateRandomBytesAndReturnError(&error), std::nullopt);
  EXPECT_THAT(error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", -25291));
}

TEST_F(FailingRandomSourceTest, TheStatusIsSignExtended) {
  random->status = INT32_MIN;
  qvr::ErrorPtr error;
  TestClient::generateRandomBytesAndReturnError(&error);
  EXPECT_THAT(error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", std::int64_t{-2147483648}));
}

TEST_F(FailingRandomSourceTest, APositiveStatusIsAFailureToo) {
  random->status = 1;
  qvr::ErrorPtr error;
  EXPECT_EQ(TestClient::generateRandomBytesAndReturnError(&error), std::nullopt);
  EXPECT_THAT(error, IsErrorWithoutUserInfo("NSOSStatusErrorDomain", 1));
}

TEST_F(FailingRandomSourceTest, TheErrorOutParameterMayBeLeftOut) {
  random->status = -1;
  EXPECT_EQ(TestClient::generateRandomBytesAndReturnError(), std::nullopt);
  EXPECT_EQ(TestClient::generateRandomBytesAndReturnError(nullptr), std::nullopt);
}

TEST_F(PKCETest, AVerifierIsDrawnCharacterByCharacterFromTheSixtySix) {
  const std::string verifier = TestClient::generateCodeVerifier();
  EXPECT_EQ(scripted->bounds, std::vector<std::uint32_t>(128, 66));
  EXPECT_TRUE(scripted->byteCounts.empty()) << "it is independent of the state's bytes";
  EXPECT_EQ(verifier, std::string(kAlphabet) + std::string(kAlphabet.substr(0, 62)));
}

TEST_F(FailingRandomSourceTest, AVerifierIsMadeEvenWhenTheByteGeneratorFails) {
  random->status = -1;
  EXPECT_EQ(TestClient::generateCodeVerifier().size(), 128u);
}

TEST_F(PKCETest, TwoVerifiersInARowDiffer) {
  const std::string first = TestClient::generateCodeVerifier();
  const std::string second = TestClient::generateCodeVerifier();
  EXPECT_EQ(second.size(), 128u);
  EXPECT_EQ(second.find_first_not_of(kAlphabet), std::string::npos);
  EXPECT_NE(first, second);
}

// The library's own generator, as a host that sets none gets it.
TEST(SystemRandomPKCETest, StatesAndVerifiersHaveTheirFormAndNeverRepeat) {
  qvr::ScopedWorld world;
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    const std::string state = TestClient::generateRandomBytesAndReturnError().value();
    const std::string verifier = TestClient::generateCodeVerifier();
    EXPECT_EQ(state.size(), 44u);
    EXPECT_EQ(verifier.size(), 128u);
    EXPECT_EQ(verifier.find_first_not_of(kAlphabet), std::string::npos);
    seen.insert(state);
    seen.insert(verifier);
  }
  EXPECT_EQ(seen.size(), 100u);
}

// 12,800 draws: each of the 66 characters is expected 194 times. The chance that a fair generator
// misses one of them is below 1e-80.
TEST(SystemRandomPKCETest, VerifiersUseTheWholeAlphabet) {
  qvr::ScopedWorld world;
  std::set<char> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string verifier = TestClient::generateCodeVerifier();
    seen.insert(verifier.begin(), verifier.end());
  }
  EXPECT_EQ(seen.size(), kAlphabet.size());
}

TEST(CodeChallengeTest, OfOneHundredAndTwentyEightLettersA) {
  EXPECT_EQ(TestClient::S256CodeChallengeWithCodeVerifier(std::string(128, 'A')),
            "tqw8wQOGMxx2XwTwQcFH0PJ48q7Y6qAh4tAFf8b2_54");
}

TEST(CodeChallengeTest, OfRFC7636AppendixB) {
  EXPECT_EQ(
      TestClient::S256CodeChallengeWithCodeVerifier("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
      "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
}

TEST(CodeChallengeTest, OfTheEmptyVerifierIsTheDigestOfNothing) {
  EXPECT_EQ(TestClient::S256CodeChallengeWithCodeVerifier(""),
            "47DEQpj8HBSa-_TImW-5JCeuQeRkm5NMpJWZG3hSuFU");
}

TEST(CodeChallengeTest, OfAnAbsentVerifierIsAbsent) {
  EXPECT_EQ(TestClient::S256CodeChallengeWithCodeVerifier(nullptr), std::nullopt);
}

TEST(CodeChallengeTest, HashingStopsAtAnEmbeddedNUL) {
  using namespace std::string_view_literals;
  EXPECT_EQ(TestClient::S256CodeChallengeWithCodeVerifier("abc\0def"sv),
            TestClient::S256CodeChallengeWithCodeVerifier("abc"));
  EXPECT_NE(TestClient::S256CodeChallengeWithCodeVerifier("abcdef"),
            TestClient::S256CodeChallengeWithCodeVerifier("abc"));
}

TEST(CodeChallengeTest, AlwaysHasFortyThreeCharactersWithoutPadding) {
  for (std::size_t length = 0; length < 70; ++length) {
    const std::string challenge =
        TestClient::S256CodeChallengeWithCodeVerifier(std::string(length, 'x')).value();
    EXPECT_EQ(challenge.size(), 43u);
    EXPECT_EQ(challenge.find_first_of("=+/"), std::string::npos);
  }
}

TEST_F(PKCETest, TheVerifiersBytesAreHashedAsUTF8) {
  const qvr::Text challenge = TestClient::S256CodeChallengeWithCodeVerifier("\xC3\xA9");
  const auto digest = qvr_initWithBase64URLEncodedString(challenge, 0);
  ASSERT_TRUE(digest.has_value());
  EXPECT_EQ(digest->size(), 32u);
  EXPECT_EQ(digest->at(0), 0x4A);  // sha256 of c3 a9 begins 4a99557e
  EXPECT_EQ(digest->at(1), 0x99);
}

}  // namespace
