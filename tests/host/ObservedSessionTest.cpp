// A session that shows its answers on their way to the library.
#include <gtest/gtest.h>

#include "host/ObservedSession.h"
#include "tests/support/FakeSession.h"

namespace host {
namespace {

class ObservedSessionTest : public testing::Test {
 protected:
  // Makes a request and returns the task behind it.
  support::FakeTask& request() {
    task = session->dataTask(qvr::URLRequest(*qvr::URL::URLWithString("https://x.test/")),
                             [this](auto data, auto* response, auto error) {
                               calls.push_back(data ? "handled " + text(*data) : "failed");
                               EXPECT_EQ(response != nullptr, data.has_value());
                               EXPECT_EQ(error == nullptr, data.has_value());
                             });
    task->resume();
    return inner->last();
  }

  void runAll() {
    while (queue->runOne())
      continue;
  }

  static std::string text(const qvr::Data& data) { return {data.begin(), data.end()}; }

  void observe(const std::string& name) {
    session->setObserver([this, name](const qvr::Data& body, const qvr::HTTPURLResponse& response) {
      calls.push_back(name + " " + std::to_string(response.statusCode) + " " + text(body));
    });
  }

  const qvr::Ref<support::ManualQueue> queue = qvr::makeRef<support::ManualQueue>("callbacks");
  const qvr::Ref<support::FakeSession> inner = qvr::makeRef<support::FakeSession>(queue);
  const qvr::Ref<ObservedSession> session = qvr::makeRef<ObservedSession>(inner);
  qvr::Ref<qvr::URLSessionDataTask> task;
  std::vector<std::string> calls;
};

TEST_F(ObservedSessionTest, ShowsAnAnswerBeforeItIsHandled) {
  observe("seen");
  request().answer(429, "later");
  runAll();
  EXPECT_EQ(calls, (std::vector<std::string>{"seen 429 later", "handled later"}));
}

TEST_F(ObservedSessionTest, PassesTransportErrorsOnUnseen) {
  observe("seen");
  request().fail(qvr::NSURLErrorTimedOut);
  runAll();
  EXPECT_EQ(calls, std::vector<std::string>{"failed"});
}

TEST_F(ObservedSessionTest, ShowsAnswersToTheLatestObserverOnly) {
  observe("first");
  support::FakeTask& one = request();
  observe("second");
  one.answer(200, "a");
  runAll();
  session->setObserver(nullptr);
  request().answer(200, "b");
  runAll();
  EXPECT_EQ(calls, (std::vector<std::string>{"second 200 a", "handled a", "handled b"}));
}

TEST_F(ObservedSessionTest, ObserverMayEndTheObservation) {
  session->setObserver([this](const auto&, const auto&) { session->setObserver(nullptr); });
  request().answer(200, "a");
  runAll();
  EXPECT_EQ(calls, std::vector<std::string>{"handled a"});
}

TEST_F(ObservedSessionTest, TaskIsTheSessionsOwn) {
  const support::FakeTask& made = request();
  EXPECT_EQ(task.get(), &made);
  task->cancel();
  runAll();
  EXPECT_EQ(calls, std::vector<std::string>{"failed"});
}

}  // namespace
}  // namespace host
