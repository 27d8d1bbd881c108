// Carrying tokens from one keychain to another: what fails and when makes no difference to what is
// kept.
#include <functional>

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "host/Configuration.h"
#include "host/KeychainMove.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

// A keychain whose operations are counted together with those of others, and one of which fails:
// before it has done anything, or when it has done all.
class FailingKeychain final : public qvr::KeychainItems {
 public:
  struct Plan {
    int callsLeft = -1;  // the call that fails when this is 0
    bool failsWhenDone = false;
    bool hasFailed = false;

    // Runs the operation, or pretends to.
    std::int32_t run(const std::function<std::int32_t()>& operation) {
      if (callsLeft-- != 0) return operation();
      hasFailed = true;
      if (failsWhenDone) operation();
      return qvr::errSecNotAvailable;
    }
  };

  FailingKeychain(qvr::Ref<qvr::KeychainItems> items, Plan& plan)
      : items_(std::move(items)), plan_(plan) {}

  std::int32_t copyMatching(const qvr::KeychainQuery& query, qvr::Data* result) override {
    return plan_.run([&] { return items_->copyMatching(query, result); });
  }
  std::int32_t add(const qvr::KeychainQuery& attributes) override {
    return plan_.run([&] { return items_->add(attributes); });
  }
  std::int32_t update(const qvr::KeychainQuery& query,
                      const qvr::KeychainQuery& attributes) override {
    return plan_.run([&] { return items_->update(query, attributes); });
  }
  std::int32_t remove(const qvr::KeychainQuery& query) override {
    return plan_.run([&] { return items_->remove(query); });
  }
  std::int32_t list(std::vector<qvr::KeychainItemName>* names) override {
    return plan_.run([&] { return items_->list(names); });
  }

 private:
  const qvr::Ref<qvr::KeychainItems> items_;
  Plan& plan_;
};

// In these tests an item's first byte is the date of its record; 0 is no record.
std::optional<qvr::Date> dateOf(const qvr::Data& data) {
  if (data.empty() || data.front() == 0) return std::nullopt;
  return qvr::Date{static_cast<double>(data.front())};
}

class KeychainMoveTest : public host_test::CommandTest {
 protected:
  KeychainMoveTest() { install(); }

  static std::string service(const std::string& provider = "Google") {
    return QVROAuth2Keychain::serviceNameForService(provider);
  }

  static qvr::KeychainQuery tokenQuery() {
    return {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
            {std::string(qvr::kSecAttrService), service()},
            {std::string(qvr::kSecAttrAccount), std::string(kUser)}};
  }

  KeychainMove makeMove(bool targetIsInUse = false) {
    return {{kEncryptedFile, qvr::makeRef<FailingKeychain>(source, plan)},
            {kSecretService, qvr::makeRef<FailingKeychain>(target, plan)},
            targetIsInUse,
            dateOf};
  }

  // All of it, as the command does it; `inUse` is what the configuration says.
  std::optional<Failure> run() {
    KeychainMove move = makeMove(inUse == kSecretService);
    if (auto failure = move.check()) return failure;
    if (auto failure = move.copy()) return failure;
    if (plan.run([this] { return commit(); }) != 0) return Failure{kFailed, "not committed"};
    replaced = move.replaced();
    return move.removeOld();
  }

  std::int32_t commit() {
    inUse = kSecretService;
    return 0;
  }

  void expectMoved(const std::map<std::string, qvr::Data>& items) const {
    EXPECT_EQ(source->itemCount(), 0u);
    EXPECT_EQ(target->itemCount(), items.size());
    for (const auto& [account, data] : items)
      EXPECT_EQ(target->stored(service(), account), data) << account;
  }

  qvr::Ref<support::FakeKeychain> source = qvr::makeRef<support::FakeKeychain>();
  qvr::Ref<support::FakeKeychain> target = qvr::makeRef<support::FakeKeychain>();
  FailingKeychain::Plan plan;
  std::string_view inUse = kEncryptedFile;
  std::vector<std::string> replaced;
};

TEST_F(KeychainMoveTest, CarriesTheItemsOfBothProvidersOverAndRemovesTheOldOnes) {
  const std::string strange = "a b'\"/\\\xC3\xA9" + std::string(1000, 'x');
  const qvr::Data large(65536, 7);
  source->put(service("Google"), kUser, {1, 2});
  source->put(service("Microsoft"), strange, large);
  ASSERT_FALSE(run());
  EXPECT_EQ(source->itemCount(), 0u);
  EXPECT_EQ(target->stored(service("Google"), kUser), (qvr::Data{1, 2}));
  EXPECT_EQ(target->stored(service("Microsoft"), strange), large);
  EXPECT_THAT(replaced, IsEmpty());
}

TEST_F(KeychainMoveTest, LeavesOtherProgramsItemsWhereTheyAre) {
  source->put("org.example.other.Google.OAuth2Token", kUser, {1});
  source->put(service(), kUser, {1, 2});
  ASSERT_FALSE(run());
  EXPECT_EQ(source->itemCount(), 1u);
  EXPECT_EQ(target->itemCount(), 1u);
}

TEST_F(KeychainMoveTest, HasNothingToDoForNothing) {
  ASSERT_FALSE(run());
  EXPECT_EQ(inUse, kSecretService);
}

TEST_F(KeychainMoveTest, CarriesAThousandItems) {
  std::map<std::string, qvr::Data> items;
  for (int i = 0; i < 1000; ++i)
    items["user" + std::to_string(i)] = {1, static_cast<std::uint8_t>(i)};
  for (const auto& [account, data] : items)
    source->put(service(), account, data);
  ASSERT_FALSE(run());
  expectMoved(items);
}

TEST_F(KeychainMoveTest, ItemThatIsThereAlreadyIsNotWrittenAgain) {
  source->put(service(), kUser, {1, 2});
  target->put(service(), kUser, {1, 2});
  ASSERT_FALSE(run());
  expectMoved({{kUser, {1, 2}}});
  EXPECT_EQ(target->count("add") + target->count("update"), 0u);
}

TEST_F(KeychainMoveTest, OlderTokenOfTheTargetIsReplacedAndNamed) {
  source->put(service(), kUser, {5, 2});
  target->put(service(), kUser, {4, 2});
  ASSERT_FALSE(run());
  expectMoved({{kUser, {5, 2}}});
  EXPECT_THAT(replaced, UnorderedElementsAre("user@example.org at Google"));
}

TEST_F(KeychainMoveTest, WhatIsNoRecordInTheTargetIsReplaced) {
  source->put(service(), kUser, {5, 2});
  target->put(service(), kUser, {0});
  ASSERT_FALSE(run());
  expectMoved({{kUser, {5, 2}}});
}

TEST_F(KeychainMoveTest, DamagedItemOfTheTargetIsReplaced) {
  source->put(service(), kUser, {5, 2});
  target->put(service(), kUser, {9});
  target->failWith([this](const support::FakeKeychain::Call& call) -> std::int32_t {
    const bool isDamaged = call.operation == "copyMatching" && target->count("update") == 0;
    return isDamaged ? qvr::errSecDecode : qvr::errSecSuccess;
  });
  ASSERT_FALSE(run());
  target->failNothing();
  expectMoved({{kUser, {5, 2}}});
}

TEST_F(KeychainMoveTest, NewerTokenOfTheTargetIsNeverOverwritten) {
  struct Case {
    qvr::Data source;
    qvr::Data target;
  };
  for (const Case& each : {Case{{5, 2}, {6, 2}}, Case{{5, 2}, {5, 3}}, Case{{0, 2}, {6, 2}}}) {
    source->put(service(), "another@example.org", {1});
    source->put(service(), kUser, each.source);
    target->put(service(), kUser, each.target);
    const auto failure = run();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, kFailed);
    EXPECT_THAT(failure->sentence,
                AllOf(HasSubstr("user@example.org at Google"), Not(HasSubstr("another@")),
                      HasSubstr("`qvr-oauth2 sign-in Google user@example.org`"),
                      HasSubstr("`qvr-oauth2 sign-out --local Google user@example.org`")));
    EXPECT_EQ(inUse, kEncryptedFile);
    EXPECT_EQ(source->itemCount(), 2u);
    EXPECT_EQ(target->itemCount(), 1u) << "nothing was copied";
    EXPECT_EQ(target->stored(service(), kUser), each.target);
  }
}

TEST_F(KeychainMoveTest, AfterTheChangeTheTokenInUseCounts) {
  inUse = kSecretService;
  source->put(service(), kUser, {5, 2});  // left behind, and refreshed since
  target->put(service(), kUser, {6, 2});
  ASSERT_FALSE(run());
  expectMoved({{kUser, {6, 2}}});
}

TEST_F(KeychainMoveTest, DamagedItemOfTheSourceStopsTheMove) {
  source->put(service(), kUser, {5, 2});
  source->failEvery("copyMatching", qvr::errSecDecode);
  const auto failure = run();
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->sentence, AllOf(HasSubstr("user@example.org at Google is damaged"),
                                       HasSubstr("sign-in Google user@example.org")));
  EXPECT_EQ(inUse, kEncryptedFile);
  EXPECT_EQ(source->itemCount(), 1u);
}

TEST_F(KeychainMoveTest, ItemThatDoesNotComeBackWholeIsNotRemovedFromTheSource) {
  source->put(service(), kUser, {5, 2});
  target->onCall([this](const support::FakeKeychain::Call& call) {
    if (call.operation != "copyMatching" || target->count("add") == 0) return;
    target->put(service(), kUser, {5});  // what was kept of it
  });
  const auto failure = run();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, kTryAgainLater);
  EXPECT_THAT(failure->sentence, HasSubstr("did not come back whole from the desktop's keyring"));
  EXPECT_EQ(inUse, kEncryptedFile);
  EXPECT_EQ(source->stored(service(), kUser), (qvr::Data{5, 2}));
}

TEST_F(KeychainMoveTest, ItemThatIsGoneAfterItWasStoredIsNotRemovedFromTheSource) {
  source->put(service(), kUser, {5, 2});
  target->failWith([this](const support::FakeKeychain::Call& call) -> std::int32_t {
    const bool isLost = call.operation == "copyMatching" && target->count("add") > 0;
    return isLost ? qvr::errSecItemNotFound : qvr::errSecSuccess;
  });
  const auto failure = run();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, kTryAgainLater);
  EXPECT_EQ(source->stored(service(), kUser), (qvr::Data{5, 2}));
}

TEST_F(KeychainMoveTest, ItemThatChangesMeanwhileIsNotRemoved) {
  source->put(service(), kUser, {5, 2});
  KeychainMove move = makeMove();
  ASSERT_FALSE(move.check());
  ASSERT_FALSE(move.copy());
  source->put(service(), kUser, {6, 2});  // by a command that could not be locked out
  const auto failure = move.removeOld();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, kTryAgainLater);
  EXPECT_EQ(source->stored(service(), kUser), (qvr::Data{6, 2}));
  inUse = kSecretService;
  ASSERT_FALSE(run());
  expectMoved({{kUser, {6, 2}}});
}

TEST_F(KeychainMoveTest, ItemThatIsNoLongerInTheTargetIsNotRemovedFromTheSource) {
  source->put(service(), kUser, {5, 2});
  for (const bool isThereAlready : {false, true}) {
    if (isThereAlready) target->put(service(), kUser, {5, 2});
    KeychainMove move = makeMove();
    ASSERT_FALSE(move.check());
    ASSERT_FALSE(move.copy());
    ASSERT_EQ(target->remove(tokenQuery()), qvr::errSecSuccess);
    const auto failure = move.removeOld();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, kTryAgainLater);
    EXPECT_THAT(failure->sentence,
                AllOf(HasSubstr("user@example.org at Google"),
                      HasSubstr("not in the desktop's keyring any more, and stays")));
    EXPECT_EQ(source->stored(service(), kUser), (qvr::Data{5, 2}));
  }
}

// As where files cannot be locked: the second begins when the first has said where the tokens are,
// and has taken some of its steps when the first comes to its last.
TEST_F(KeychainMoveTest, TwoOppositeMovesAtOnceLoseNothing) {
  for (std::size_t stepsBefore = 0; stepsBefore <= 3; ++stepsBefore) {
    SCOPED_TRACE(stepsBefore);
    source->put(service(), kUser, {5, 2});
    KeychainMove there = makeMove();
    KeychainMove back({kSecretService, target}, {kEncryptedFile, source}, false, dateOf);
    const std::vector<std::function<std::optional<Failure>()>> steps = {
        [&] { return back.check(); }, [&] { return back.copy(); },
        [&] { return back.removeOld(); }};
    ASSERT_FALSE(there.check());
    ASSERT_FALSE(there.copy());
    for (std::size_t step = 0; step < stepsBefore; ++step)
      EXPECT_FALSE(steps[step]());
    const bool isRefused = there.removeOld().has_value();
    EXPECT_EQ(isRefused, stepsBefore == 3);
    for (std::size_t step = stepsBefore; step < 3; ++step)
      EXPECT_EQ(steps[step]().has_value(), stepsBefore > 0 && step == 2) << "step " << step;
    EXPECT_EQ(source->itemCount() + target->itemCount(), 1u);
    const auto& holder = source->itemCount() == 1 ? source : target;
    EXPECT_EQ(holder->stored(service(), kUser), (qvr::Data{5, 2}));
    ASSERT_EQ(holder->remove(tokenQuery()), qvr::errSecSuccess);
  }
}

TEST_F(KeychainMoveTest, LockedKeyringIsTriedAgainLater) {
  source->put(service(), kUser, {5, 2});
  target->failEvery("copyMatching", qvr::errSecInteractionNotAllowed);
  const auto failure = run();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->status, kTryAgainLater);
  EXPECT_THAT(failure->sentence, HasSubstr("keyring is locked"));
}

// Fails call 1, 2, 3... of the two keychains and of the commit, until none fires any more. A fault
// ends the move at once, so each also shows what a kill at that moment leaves.
class KeychainMoveFaultTest : public KeychainMoveTest, public testing::WithParamInterface<bool> {
 protected:
  using Items = std::map<std::string, qvr::Data>;

  const Items items = {
      {"one@example.org", {5, 1}}, {"two@example.org", {5, 2}}, {"three@example.org", {5, 3}}};

  void fill() {
    source = qvr::makeRef<support::FakeKeychain>();
    target = qvr::makeRef<support::FakeKeychain>();
    inUse = kEncryptedFile;
    for (const auto& [account, data] : items)
      source->put(service(), account, data);
    target->put(service(), "two@example.org", {4, 2});    // to be replaced
    target->put(service(), "three@example.org", {5, 3});  // there already
  }

  void expectNothingLost() const {
    const auto& now = inUse == kEncryptedFile ? source : target;
    for (const auto& [account, data] : items)
      EXPECT_EQ(now->stored(service(), account), data) << account << " in the keychain in use";
  }
};

TEST_P(KeychainMoveFaultTest, LosesNothingWhicheverCallFailsAndIsCompletedByRunningItAgain) {
  int faults = 0;
  for (int call = 0;; ++call) {
    SCOPED_TRACE(call);
    fill();
    plan = {call, GetParam(), false};
    const auto failure = run();
    const bool hasFailed = plan.hasFailed;
    expectNothingLost();
    plan = {};
    if (!hasFailed) {
      EXPECT_FALSE(failure);
      break;
    }
    ++faults;
    EXPECT_TRUE(failure);
    ASSERT_FALSE(run());
    expectMoved(items);
  }
  EXPECT_GE(faults, 1 + 6 + 4 + 1 + 6);  // list, check, copy, commit, remove
}

INSTANTIATE_TEST_SUITE_P(When, KeychainMoveFaultTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& each) {
                           return each.param ? "DoneButNotSaid" : "NotDone";
                         });

TEST(KeychainNamed, KnowsTheNamesThatUsersAndConfigurationsUse) {
  EXPECT_EQ(keychainNamed("secret-service"), kSecretService);
  EXPECT_EQ(keychainNamed("file"), kEncryptedFile);
  EXPECT_EQ(keychainNamed("encrypted-file"), kEncryptedFile);
  for (const char* const name : {"", "File", "keyring", "secret-service "})
    EXPECT_FALSE(keychainNamed(name)) << name;
}

// Wherever the time ends, each token is in one of the two keychains.
TEST_F(KeychainMoveTest, StopsBetweenTwoItemsWhenTheCommandsTimeIsOver) {
  source->put(service(), kUser, {1});
  KeychainMove move = makeMove();
  ASSERT_FALSE(move.check());
  const host_test::ScopedDeadline deadline(-1);
  for (const auto& failure : {move.copy(), move.removeOld(), makeMove().check()}) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->status, kTryAgainLater);
    EXPECT_THAT(failure->sentence, HasSubstr("--timeout"));
  }
  EXPECT_EQ(source->stored(service(), kUser), qvr::Data{1});
  EXPECT_EQ(target->itemCount(), 0u);
}

}  // namespace
}  // namespace host
