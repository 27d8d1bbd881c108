// What is noted of an answer beside what the library's response keeps.
#include "host/AnswerObserver.h"
#include "host/Setup.h"
#include "host/Wait.h"
#include "tests/host/CommandTest.h"

namespace host_test {
namespace {

class AnswerObserverTest : public CommandTest {
 protected:
  // Has the installed session ask for something, and waits until the answer was handled.
  void request(Answer answer) {
    session->answerWith(std::move(answer));
    const host::Outcome<bool> handled;
    const auto task = host::urlSession()->dataTask(
        qvr::URLRequest(*qvr::URL::URLWithString("https://login.example.test/token")),
        [handled](auto&&...) { handled.deliver(true); });
    task->resume();
    ASSERT_TRUE(handled.wait(30));
  }
};

TEST_F(AnswerObserverTest, NotesStatusAndRetryAfterOfTheLastAnswer) {
  install();
  const host::AnswerObserver observer;
  request({500, "first"});
  request({503, "second", 0, {{"Retry-After", "30"}}});
  EXPECT_EQ(observer.answer()->statusCode, 503);
  EXPECT_EQ(observer.answer()->retryAfterSeconds, 30);
}

TEST_F(AnswerObserverTest, NotesNothingWithoutAnAnswer) {
  install();
  const host::AnswerObserver observer;
  request({0, "", qvr::NSURLErrorNetworkConnectionLost});
  EXPECT_EQ(observer.answer()->statusCode, 0);
}

TEST_F(AnswerObserverTest, NotesNothingThatComesAfterItWasRead) {
  install();
  const host::AnswerObserver observer;
  const auto answer = observer.answer();
  request({503, "late"});
  EXPECT_EQ(answer->statusCode, 0);
  EXPECT_EQ(observer.answer(), answer);
}

}  // namespace
}  // namespace host_test
