// Records into the keychain and out of it.

#include <limits>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/KeyedArchive.h"
#include "tests/manager/ManagerTest.h"

namespace {

using support::archiveOf;
using support::HasError;
using support::HasToken;
using support::IsErrorWithoutUserInfo;
using support::IsErrorWithUserInfo;
using support::kGoogleService;
using support::kMicrosoftService;
using support::kUser;
using support::makeToken;
using testing::ElementsAre;
using testing::IsEmpty;

// The archive of another writer that has no root object.
constexpr std::string_view kArchiveWithoutRoot(
    "bplist00\xd4\x01\x02\x03\x04\x05\x06\x07\x08X$versionY$archiverT$topX$objects\x12\x00\x01\x86"
    "\xa0_\x10\x0fNSKeyedArchiver\xd0\xa1\tU$null\x08\x11\x1a$)27IJL\x00\x00\x00\x00\x00\x00\x01"
    "\x01\x00\x00\x00\x00\x00\x00\x00\n\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
    "\x00R",
    124);

class ReadTokenTest : public support::ManagerTest {
 protected:
  void read(const std::string& name, qvr::TextView provider = QVROAuth2ProviderGoogle,
            qvr::TextView username = kUser) {
    manager->getTokenFromKeychainForProvider(provider, username, note(name));
  }

  // The answer to a read of these bytes.
  support::Answer readBytes(qvr::Data data) {
    keychain->put(kGoogleService, kUser, std::move(data));
    answers.clear();
    read("r");
    EXPECT_NO_THROW(runAll());
    EXPECT_EQ(answers.size(), 1);
    return answers.empty() ? support::Answer() : answers.front();
  }
};

TEST_F(ReadTokenTest, AStoredTokenIsDecoded) {
  put(dueToken());
  read("r");
  runAll();
  ASSERT_EQ(answers.size(), 1);
  ASSERT_TRUE(answers[0].token);
  EXPECT_EQ(answers[0].error, nullptr);
  EXPECT_EQ(answers[0].token->accessToken(), "due") << "due or not";
  EXPECT_THAT(session->tasks(), IsEmpty());
}

TEST_F(ReadTokenTest, ProviderAndUserNameAreServiceAndAccount) {
  read("r", "Some Provider", "Some User");
  runAll();
  ASSERT_EQ(keychain->calls().size(), 1);
  EXPECT_EQ(keychain->calls()[0].query,
            (qvr::KeychainQuery{{"class", "genp"},
                                {"svce", "org.example.mail.Some Provider.OAuth2Token"},
                                {"acct", "Some User"},
                                {"r_Data", true}}));
}

TEST_F(ReadTokenTest, KeychainErrorsAreHandedOnUnchanged) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {-25300, "The specified item could not be found in the keychain."},
      {-25308, "User interaction is not allowed."},
      {-36, "I/O error."},
  };
  for (const auto& [status, message] : cases) {
    answers.clear();
    keychain->failEvery("copyMatching", status);
    read("r");
    runAll();
    ASSERT_EQ(answers.size(), 1);
    EXPECT_EQ(answers[0].token, nullptr);
    EXPECT_THAT(answers[0].error, IsErrorWithUserInfo(qvr::NSOSStatusErrorDomain, status,
                                                      support::described(message)));
  }
}

TEST_F(ReadTokenTest, BytesThatAreNoArchiveCannotBeRead) {
  for (const std::string_view text : {"", "x", "bplist00", "{\"access_token\":\"at\"}"}) {
    EXPECT_THAT(readBytes(support::bytes(text)), HasError("r", qvr::NSCocoaErrorDomain, 4864))
        << text;
  }
}

TEST_F(ReadTokenTest, AnArchiveWithoutARootHasNoValue) {
  const support::Answer answer = readBytes(support::bytes(kArchiveWithoutRoot));
  EXPECT_EQ(answer.token, nullptr);
  EXPECT_THAT(answer.error, IsErrorWithoutUserInfo(qvr::NSCocoaErrorDomain, 4865));
}

TEST_F(ReadTokenTest, AnArchiveOfAnotherClassIsForeign) {
  qvr::ErrorPtr error;
  const auto data = qvr::archiveRootObject(
      "NSDictionary", [this](qvr::Coder& coder) { freshToken()->encodeWithCoder(coder); }, &error);
  ASSERT_TRUE(data);
  EXPECT_THAT(readBytes(*data), HasError("r", qvr::NSCocoaErrorDomain, 4864));
}

TEST_F(ReadTokenTest, AnEntryOfAWrongClassIsRejected) {
  qvr::ErrorPtr error;
  const auto data = qvr::archiveRootObject(
      "QVROAuth2Token",
      [](qvr::Coder& coder) { coder.encodeObject(std::string("3600"), "QVR.expiresIn"); }, &error);
  ASSERT_TRUE(data);
  EXPECT_THAT(readBytes(*data), HasError("r", qvr::NSCocoaErrorDomain, 4864));
}

TEST_F(ReadTokenTest, ADamagedArchiveNeverRaisesAndIsAnsweredOnce) {
  const qvr::Data sound = archiveOf(freshToken());
  for (std::size_t length = 0; length < sound.size(); ++length) {
    const support::Answer answer =
        readBytes(qvr::Data(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_THAT(answer, HasError("r", qvr::NSCocoaErrorDomain, 4864)) << length;
  }
  for (std::size_t i = 0; i < sound.size(); ++i) {
    qvr::Data damaged = sound;
    damaged[i] = static_cast<std::uint8_t>(~damaged[i]);
    const support::Answer answer = readBytes(damaged);
    EXPECT_NE(answer.token == nullptr, answer.error == nullptr) << "byte " << i;
  }
}

TEST_F(ReadTokenTest, TheHandlerRunsOnTheDelegateQueue) {
  put(freshToken());
  read("r");
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(support::kDelegateQueue));
}

class StoreTokenTest : public ReadTokenTest {
 protected:
  // A store that adds an answer without a token.
  void store(const std::string& name, const qvr::Ref<QVROAuth2Token>& token,
             qvr::TextView provider = QVROAuth2ProviderGoogle, qvr::TextView username = kUser) {
    manager->setTokenToKeychain(token, provider, username,
                                [this, name](const qvr::ErrorPtr& error) {
                                  answers.push_back({name, nullptr, error});
                                });
  }
};

TEST_F(StoreTokenTest, WhatIsStoredIsReadBackWithTheSameValues) {
  const auto token = QVROAuth2Token::initWithAccessToken(
      "at", "Bearer", 3599.5, nullptr, qvr::TextSet{"", "mail"}, qvr::Date{clock->now - 0.25});
  store("s", token);
  read("r");
  runAll();
  ASSERT_EQ(answers.size(), 2);
  EXPECT_EQ(answers[0].error, nullptr);
  const auto readBack = answers[1].token;
  ASSERT_TRUE(readBack);
  EXPECT_NE(readBack, token);
  EXPECT_EQ(readBack->accessToken(), token->accessToken());
  EXPECT_EQ(readBack->tokenType(), token->tokenType());
  EXPECT_EQ(readBack->expiresIn(), token->expiresIn());
  EXPECT_EQ(readBack->refreshToken(), token->refreshToken());
  EXPECT_EQ(readBack->grantedScopes(), token->grantedScopes());
  EXPECT_EQ(readBack->creationDate(), token->creationDate());
}

TEST_F(StoreTokenTest, TheSameUserNameUnderTheOtherProviderIsADifferentItem) {
  store("Google", freshToken("of Google"));
  store("Microsoft", freshToken("of Microsoft"), QVROAuth2ProviderMicrosoft);
  runAll();
  EXPECT_EQ(keychain->itemCount(), 2);
  EXPECT_EQ(stored(kGoogleService)->accessToken(), "of Google");
  EXPECT_EQ(stored(kMicrosoftService)->accessToken(), "of Microsoft");
}

TEST_F(StoreTokenTest, StoringAgainReplacesTheToken) {
  store("first", freshToken("first"));
  store("second", freshToken("second"));
  runAll();
  EXPECT_EQ(keychain->itemCount(), 1);
  EXPECT_EQ(storedAccessToken(), "second");
}

TEST_F(StoreTokenTest, AKeychainFailureReachesTheHandler) {
  keychain->failEvery("add", qvr::errSecDiskFull);
  store("s", freshToken());
  runAll();
  ASSERT_EQ(answers.size(), 1);
  EXPECT_THAT(answers[0].error, IsErrorWithUserInfo(qvr::NSOSStatusErrorDomain, -34,
                                                    support::described("The disk is full.")));
  EXPECT_EQ(keychain->itemCount(), 0);
}

TEST_F(StoreTokenTest, TheHandlerRunsOnTheDelegateQueue) {
  store("s", freshToken());
  EXPECT_THAT(queuesThatAnswered(), ElementsAre(support::kDelegateQueue));
}

TEST_F(StoreTokenTest, ATokenThatCannotBeArchivedIsToldAtOnceAndNothingIsWritten) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const auto tokenWithScope = [](std::string scope) {
    return QVROAuth2Token::initWithAccessToken("at", "Bearer", 1, "rt",
                                               qvr::TextSet{std::move(scope)}, qvr::Date{});
  };
  const qvr::Ref<QVROAuth2Token> tokens[] = {
      makeToken("\xff", 1, "rt", 0),        makeToken("at", 1, "\xc3", 0),
      makeToken("at", kInfinity, "rt", 0),  makeToken("at", kNaN, "rt", 0),
      makeToken("at", 1, "rt", -kInfinity), makeToken("at", 1, "rt", kNaN),
      tokenWithScope("\xed\xa0\x80"),       makeToken(std::string(2000000, 'x'), 1, "rt", 0),
  };
  for (const qvr::Ref<QVROAuth2Token>& token : tokens) {
    answers.clear();
    store("s", token);
    ASSERT_EQ(answers.size(), 1) << "the handler ran before the store returned";
    EXPECT_THAT(answers[0].error, IsErrorWithoutUserInfo(qvr::NSCocoaErrorDomain, 4866));
  }
  runAll();
  EXPECT_EQ(answers.size(), 1);
  EXPECT_THAT(keychain->calls(), IsEmpty());
}

TEST_F(StoreTokenTest, ATokenThatCannotBeArchivedLeavesTheStoredOne) {
  store("first", freshToken("first"));
  runAll();
  store("second", makeToken("second", std::numeric_limits<double>::infinity(), "rt", 0));
  runAll();
  EXPECT_EQ(storedAccessToken(), "first");
}

TEST_F(StoreTokenTest, AnAbsentTokenOrProviderRaises) {
  EXPECT_THROW(store("s", nullptr), qvr::InvalidArgumentException);
  EXPECT_THROW(store("s", freshToken(), nullptr), qvr::InvalidArgumentException);
  runAll();
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(keychain->itemCount(), 0);
}

}  // namespace
