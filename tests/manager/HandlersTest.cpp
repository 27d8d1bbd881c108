// What a handler may do: anything, since no lock is held while it runs.

#include <thread>

#include "tests/manager/ManagerTest.h"
#include "tests/support/Countdown.h"

namespace {

using support::IsAnswered;
using support::kRefreshedBody;
using support::kUser;
using testing::ElementsAre;
using testing::IsEmpty;

class HandlersTest : public support::ManagerTest {
 protected:
  // A handler that notes its answer and then does more.
  void requestAndThen(const std::string& name, std::function<void()> then) {
    manager->requestAccessTokenForProvider(
        QVROAuth2ProviderGoogle, kUser,
        [noted = note(name), then = std::move(then)](const qvr::Ref<QVROAuth2Token>& token,
                                                     const qvr::ErrorPtr& error) {
          noted(token, error);
          then();
        });
  }

  // Whether another thread gets through both tables, which it does not while a lock is held.
  bool isUnlocked() {
    const auto done = std::make_shared<support::Countdown>();
    std::thread([done, this] {
      manager->requestAccessTokenForProvider(
          QVROAuth2ProviderGoogle, "other@example.org",
          [](const qvr::Ref<QVROAuth2Token>&, const qvr::ErrorPtr&) {});
      manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, "other@example.org");
      done->arrive();
    }).detach();
    return done->wait();
  }
};

TEST_F(HandlersTest, ARequestFromAHandlerIsARequestOfItsOwn) {
  put(freshToken());
  requestAndThen("outer", [this] { request("inner"); });
  request("second");
  EXPECT_TRUE(queues.named(support::kWorkQueue)->runOne());
  EXPECT_TRUE(queues.named(support::kDelegateQueue)->runOne());
  EXPECT_THAT(answers, ElementsAre(IsAnswered("outer"), IsAnswered("second")))
      << "those who waited are answered together; the new one waits for its turn";
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("outer"), IsAnswered("second"), IsAnswered("inner")));
}

// The keychain's queues go on while a handler runs on the session's.
TEST_F(HandlersTest, TheEntryOfAFailedRefreshIsGoneBeforeItsHandlersRun) {
  put(dueToken());
  requestAndThen("outer", [this] {
    request("inner");
    runKeychain();
    EXPECT_EQ(session->tasks().size(), 2) << "the next refresh starts at once";
  });
  runKeychain();
  session->last().fail(qvr::NSURLErrorTimedOut);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("outer")));
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("outer"), IsAnswered("inner")));
}

TEST_F(HandlersTest, AHandlerMayCancel) {
  put(dueToken());
  requestAndThen("r",
                 [this] { manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, kUser); });
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  ASSERT_EQ(answers.size(), 1);
  EXPECT_TRUE(answers[0].token);
}

TEST_F(HandlersTest, AHandlerMayStoreAndAsk) {
  put(freshToken());
  bool found = false;
  requestAndThen("r", [&] {
    manager->setTokenToKeychain(freshToken("stored by the handler"), QVROAuth2ProviderGoogle, kUser,
                                [](const qvr::ErrorPtr& error) { EXPECT_EQ(error, nullptr); });
    manager->hasAccessTokenForProvider(QVROAuth2ProviderGoogle, kUser,
                                       [&](bool hasToken) { found = hasToken; });
  });
  runAll();
  EXPECT_TRUE(found);
  EXPECT_EQ(storedAccessToken(), "stored by the handler");
}

TEST_F(HandlersTest, NoLockIsHeldWhileHandlersRun) {
  int unlocked = 0;
  const auto check = [&] { unlocked += isUnlocked() ? 1 : 0; };
  requestAndThen("nothing stored", check);
  runAll();
  put(freshToken());
  requestAndThen("fresh", check);
  runAll();
  put(dueToken());
  requestAndThen("failed refresh", check);
  runKeychain();
  session->last().fail(qvr::NSURLErrorTimedOut);
  runAll();
  requestAndThen("refreshed", check);
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_EQ(answers.size(), 4);
  EXPECT_EQ(unlocked, 4);
}

// A session whose tasks call back into the manager when they are resumed, and count cancellations.
class EagerSession final : public qvr::URLSession {
 public:
  explicit EagerSession(qvr::Ref<qvr::URLSession> inner) : inner_(std::move(inner)) {}

  qvr::Ref<qvr::URLSessionDataTask> dataTask(qvr::URLRequest request,
                                             qvr::DataTaskCompletionHandler handler) override {
    return qvr::makeRef<Task>(this, inner_->dataTask(std::move(request), std::move(handler)));
  }

  std::function<void()> beforeResume = [] {};
  int cancelled = 0;

 private:
  class Task final : public qvr::URLSessionDataTask {
   public:
    Task(EagerSession* session, qvr::Ref<qvr::URLSessionDataTask> inner)
        : session_(session), inner_(std::move(inner)) {}
    void resume() override {
      session_->beforeResume();
      inner_->resume();
    }
    void cancel() override {
      ++session_->cancelled;
      inner_->cancel();
    }
    State state() const override { return inner_->state(); }

   private:
    EagerSession* const session_;
    const qvr::Ref<qvr::URLSessionDataTask> inner_;
  };

  const qvr::Ref<qvr::URLSession> inner_;
};

class TaskTableTest : public support::UnstartedManagerTest {
 protected:
  TaskTableTest() {
    host.setURLSession(eager);
    start();
    put(dueToken());
  }

  qvr::Ref<EagerSession> eager = qvr::makeRef<EagerSession>(session);
};

TEST_F(TaskTableTest, NoLockIsHeldWhileATaskIsResumed) {
  eager->beforeResume = [this] {
    request("during resume");
    manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, "other@example.org");
  };
  request("r");
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_THAT(answers, ElementsAre(IsAnswered("r"), IsAnswered("during resume")));
}

TEST_F(TaskTableTest, ACancelBeforeTheResumeTakesEffectWithIt) {
  eager->beforeResume = [this] {
    manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, kUser);
  };
  request("r");
  runKeychain();
  EXPECT_THAT(answers, IsEmpty());
  runAll();
  EXPECT_THAT(answers,
              ElementsAre(support::HasError("r", qvr::NSURLErrorDomain, qvr::NSURLErrorCancelled)));
}

TEST_F(TaskTableTest, TheEntryOfAStoredRefreshIsGoneBeforeItsHandlersRun) {
  bool ran = false;
  manager->requestAccessTokenForProvider(
      QVROAuth2ProviderGoogle, kUser, [&](const qvr::Ref<QVROAuth2Token>&, const qvr::ErrorPtr&) {
        manager->cancelRequestForProvider(QVROAuth2ProviderGoogle, kUser);
        ran = true;
      });
  runKeychain();
  session->last().answer(200, kRefreshedBody);
  runAll();
  EXPECT_TRUE(ran);
  EXPECT_EQ(eager->cancelled, 0) << "no task is there to be cancelled";
}

}  // namespace
