// A locked keyring: who is asked, what the answers mean, and that it never passes for an empty one.

#include <atomic>

#include "tests/ports/helpers/SecretServiceTest.h"

namespace ports_test {
namespace {

using Prompt = support::FakeKeyring::Prompt;

class SecretServiceLockedTest : public SecretServiceTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
    lock();
  }
  void TearDown() override {
    EXPECT_EQ(countOf("Dismiss"), 0);  // a known service ends when a prompt is dismissed
  }

  void setPrompt(Prompt prompt) {
    service_.with([prompt](Keyring& keyring) { keyring.prompt = prompt; });
  }

  // What every operation answers.
  void expectAll(const qvr::Ref<qvr::KeychainItems>& keychain, std::int32_t status) {
    const Item item{*keychain, kService};
    qvr::Data data;
    std::vector<qvr::KeychainItemName> names;
    EXPECT_EQ(item.read(&data), status);
    EXPECT_EQ(item.probe(), status);
    EXPECT_EQ(item.update("x"), status);
    EXPECT_EQ(item.add("x"), status);
    EXPECT_EQ(item.remove(), status);
    EXPECT_EQ(keychain->list(&names), status);
  }
};

TEST_F(SecretServiceLockedTest, AcceptedPromptOpensTheKeyring) {
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(countOf("Unlock"), 1);
  EXPECT_EQ(countOf("Prompt"), 1);
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(countOf("Unlock"), 1);
}

TEST_F(SecretServiceLockedTest, EveryOperationUnlocks) {
  std::vector<qvr::KeychainItemName> names;
  lock();
  EXPECT_EQ(item_.probe(), qvr::errSecSuccess);
  lock();
  EXPECT_EQ(item_.update("another"), qvr::errSecSuccess);
  lock();
  EXPECT_EQ(item_.add("x"), qvr::errSecDuplicateItem);
  lock();
  EXPECT_EQ(keychain_->list(&names), qvr::errSecSuccess);
  EXPECT_EQ(names.size(), 1u);
  lock();
  EXPECT_EQ(item_.remove(), qvr::errSecSuccess);
  lock();
  EXPECT_EQ(item_.add("x"), qvr::errSecSuccess);
  EXPECT_EQ(countOf("Prompt"), 6);
}

// With nobody to ask a service dismisses its prompt itself, faster than a person could.
TEST_F(SecretServiceLockedTest, PromptDismissedAtOnceMeansThatNobodyCanBeAsked) {
  setPrompt(Prompt::kDismisses);
  expectAll(keychain_, qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(itemCount(), 1u);
}

TEST_F(SecretServiceLockedTest, PromptDismissedByAPersonIsACancel) {
  setPrompt(Prompt::kWaits);
  qvr::SecretServiceOptions asking = options();
  asking.promptIsShown = [this] { service_.answerPrompt(false); };
  const auto keychain = open(asking);
  EXPECT_EQ((Item{*keychain, kService}.text()), "status -128");
  EXPECT_EQ((Item{*keychain, kService}.add("x")), qvr::errSecUserCanceled);
}

TEST_F(SecretServiceLockedTest, HostIsToldThatTheUserIsAskedBeforeTheWait) {
  setPrompt(Prompt::kWaits);
  int shown = 0;
  qvr::SecretServiceOptions asking = options();
  asking.promptIsShown = [&] {
    ++shown;
    service_.answerPrompt(true);
  };
  const auto keychain = open(asking);
  EXPECT_EQ((Item{*keychain, kService}.text()), "secret");
  EXPECT_EQ(shown, 1);
}

TEST_F(SecretServiceLockedTest, HostIsNotToldOfAPromptThatCompletesByItself) {
  int shown = 0;
  qvr::SecretServiceOptions asking = options();
  asking.promptIsShown = [&shown] { ++shown; };
  const auto keychain = open(asking);
  EXPECT_EQ((Item{*keychain, kService}.text()), "secret");
  EXPECT_EQ(shown, 0);
}

TEST_F(SecretServiceLockedTest, UnansweredPromptIsLeftAtItsDeadlineAndTheConnectionKept) {
  setPrompt(Prompt::kWaits);
  const int sessions = countOf("OpenSession");
  const auto keychain = open(impatient());
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ((Item{*keychain, kService}.text()), "status -25308");
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(400));
  service_.answerPrompt(true);  // too late for that call, but the keyring is open now
  EXPECT_EQ((Item{*keychain, kService}.text()), "secret");
  EXPECT_EQ(countOf("OpenSession"), sessions + 1);
}

TEST_F(SecretServiceLockedTest, WithoutMayPromptNothingIsAsked) {
  qvr::SecretServiceOptions silent = options();
  silent.mayPrompt = false;
  expectAll(open(silent), qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(countOf("Unlock"), 0);
  EXPECT_EQ(countOf("Prompt"), 0);
}

TEST_F(SecretServiceLockedTest, AcceptedPromptThatOpensNothingIsLocked) {
  setPrompt(Prompt::kAcceptsInVain);
  EXPECT_EQ(item_.text(), "status -25308");
}

TEST_F(SecretServiceLockedTest, ServiceThatEndsDuringThePromptIsAskedAgainOnce) {
  setPrompt(Prompt::kWaits);
  int shown = 0;
  qvr::SecretServiceOptions asking = options();
  asking.promptIsShown = [&] {
    ++shown;
    service_.dieDuringPrompt();
  };
  const auto keychain = open(asking);
  EXPECT_EQ((Item{*keychain, kService}.text()), "status -25291");
  EXPECT_EQ(shown, 1);  // there is no other service to ask
}

TEST_F(SecretServiceLockedTest, BusThatEndsDuringThePromptEndsTheWait) {
  setPrompt(Prompt::kWaits);
  qvr::SecretServiceOptions asking = options();
  asking.promptIsShown = [this] { bus_.crash(); };
  const auto keychain = open(asking);
  EXPECT_EQ((Item{*keychain, kService}.text()), "status -25291");
  bus_.restart();
  service_.restart();
}

// A service that says success to everything while it is locked: only the gate tells.
class SecretServicePretendingTest : public SecretServiceLockedTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
    setPrompt(Prompt::kDismisses);
    service_.with([](Keyring& keyring) { keyring.pretendsWhileLocked = true; });
  }

  // The keyring locks itself between the gate and this call.
  void lockBefore(const std::string& member) {
    service_.with([&member](Keyring& keyring) {
      keyring.onCall = [member](Keyring& self, const std::string& called) {
        if (called == member) self.isLocked = true;
        return Reaction::kServe;
      };
    });
  }
  void open() {
    service_.with([](Keyring& keyring) {
      keyring.onCall = nullptr;
      keyring.isLocked = false;
    });
  }
};

TEST_F(SecretServicePretendingTest, EmptyValueIsLocked) {
  lockBefore("GetSecret");
  EXPECT_EQ(item_.text(), "status -25308");
}

TEST_F(SecretServicePretendingTest, EmptyValueIsReadAgainOnceTheKeyringIsOpened) {
  lockBefore("GetSecret");
  setPrompt(Prompt::kAccepts);
  service_.with([](Keyring& keyring) {
    keyring.onCall = [hasLocked = false](Keyring& self, const std::string& called) mutable {
      if (called == "GetSecret" && !hasLocked) hasLocked = self.isLocked = true;
      return Reaction::kServe;
    };
  });
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServicePretendingTest, WriteWithoutEffectIsLocked) {
  lockBefore("SetSecret");
  EXPECT_EQ(item_.update("another"), qvr::errSecInteractionNotAllowed);
  open();
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServicePretendingTest, DeletionWithoutEffectIsLocked) {
  lockBefore("Delete");
  EXPECT_EQ(item_.remove(), qvr::errSecInteractionNotAllowed);
  open();
  EXPECT_EQ(item_.text(), "secret");
}

TEST_F(SecretServicePretendingTest, CreationWithoutEffectIsLocked) {
  lockBefore("CreateItem");
  EXPECT_EQ((Item{*keychain_, kService, "other"}.add("x")), qvr::errSecInteractionNotAllowed);
  open();
  EXPECT_EQ(itemCount(), 1u);
}

// An item that is locked by itself, or lies in another keyring that is.
class SecretServiceLockedItemTest : public SecretServiceLockedTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(item_.add("secret"), qvr::errSecSuccess);
    changeItem([](Keyring::Item& item) { item.isLocked = true; });
  }
};

TEST_F(SecretServiceLockedItemTest, IsUnlockedAndRead) {
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(countOf("Unlock"), 1);
}

TEST_F(SecretServiceLockedItemTest, IsNeverNotFound) {
  setPrompt(Prompt::kDismisses);
  EXPECT_EQ(item_.text(), "status -25308");
  EXPECT_EQ(item_.add("x"), qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(item_.remove(), qvr::errSecInteractionNotAllowed);
  setPrompt(Prompt::kAcceptsInVain);
  EXPECT_EQ(item_.text(), "status -25308");
  EXPECT_EQ(itemCount(), 1u);
}

// It would be found once the open one is gone, so the removal is not done.
TEST_F(SecretServiceLockedItemTest, BesideAnOpenOneIsLeftAloneAndToldOfByRemoving) {
  service_.with([](Keyring& keyring) {
    Keyring::Item twin = keyring.items.begin()->second;
    twin.isLocked = false;
    keyring.items[++keyring.lastNumber] = twin;
  });
  EXPECT_EQ(item_.text(), "secret");
  EXPECT_EQ(item_.remove(), qvr::errSecInteractionNotAllowed);
  EXPECT_EQ(countOf("Unlock"), 0);
  EXPECT_EQ(itemCount(), 1u);
}

TEST_F(SecretServiceLockedItemTest, IsLockedErrorIsLocked) {
  changeItem([](Keyring::Item& item) { item.isLocked = false; });
  answerWithError("GetSecret", "org.freedesktop.Secret.Error.IsLocked");
  EXPECT_EQ(item_.text(), "status -25308");
}

}  // namespace
}  // namespace ports_test
