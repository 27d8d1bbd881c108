#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>
#include <ctime>
#include <future>

#include "host/RedirectSocket.h"
#include "tests/host/SignInFixture.h"
#include "tests/support/ChildProcess.h"

namespace host {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr int kPatienceMilliseconds = 20'000;

// A client on a thread of its own, whose end can be waited for beside other things.
class Sending {
 public:
  explicit Sending(std::function<RedirectAnswer()> function)
      : answer_(std::async(std::launch::async, [this, function = std::move(function)] {
          const RedirectAnswer answer = function();
          finished_.write("x");
          return answer;
        })) {}

  // Readable once it is over.
  int end() const { return finished_.readEnd.number(); }
  RedirectAnswer get() { return answer_.get(); }

 private:
  Pipe finished_;
  std::future<RedirectAnswer> answer_;
};

class RedirectSocketTest : public testing::Test {
 protected:
  std::unique_ptr<RedirectListener> listen(const std::string& state, RedirectPeer peer = {}) {
    std::optional<Failure> failure;
    auto listener = RedirectListener::listen(folder.path(), state, &failure, peer);
    EXPECT_TRUE(listener) << (failure ? failure->sentence : "");
    return listener;
  }

  std::string pathFor(const std::string& state) const {
    return folder.file(redirectSocketName(state));
  }

  Sending send(const std::string& state, const std::string& url) {
    return Sending([this, state, url] { return sendRedirect(folder.path(), state, url); });
  }

  // Serves the listener once something happens there; until then, or until the descriptor (which
  // may be -1) is readable. False in the second case.
  bool serveOnce(RedirectListener& listener, int end) {
    pollfd waiting[] = {{listener.fileDescriptor(), POLLIN, 0}, {end, POLLIN, 0}};
    EXPECT_GT(poll(waiting, 2, kPatienceMilliseconds), 0) << "nothing happens";
    if (waiting[0].revents == 0) return false;
    listener.serve([this](const std::string& url) {
      received.push_back(url);
      return answer;
    });
    return true;
  }

  void serveUntilReceived(RedirectListener& listener, std::size_t count) {
    while (received.size() < count && serveOnce(listener, -1)) {
    }
  }

  // Serves until the sending is over: its answer.
  RedirectAnswer serveUntilAnswered(RedirectListener& listener, Sending& sending) {
    while (serveOnce(listener, sending.end())) {
    }
    return sending.get();
  }

  support::TemporaryFolder folder;
  std::vector<std::string> received;
  RedirectAnswer answer = RedirectAnswer::kAccepted;
};

TEST_F(RedirectSocketTest, RedirectReachesTheListenerOfItsState) {
  const auto listener = listen("s");
  Sending sent = send("s", "m.x://auth?state=s");
  serveUntilReceived(*listener, 1);
  EXPECT_EQ(sent.get(), RedirectAnswer::kAccepted);
  EXPECT_THAT(received, ElementsAre("m.x://auth?state=s"));
}

TEST_F(RedirectSocketTest, SenderLearnsWhatBecameOfIt) {
  const auto listener = listen("s");
  for (const RedirectAnswer each :
       {RedirectAnswer::kAccepted, RedirectAnswer::kNotThisSignIn, RedirectAnswer::kRefused}) {
    answer = each;
    Sending sent = send("s", "u");
    serveUntilReceived(*listener, received.size() + 1);
    EXPECT_EQ(sent.get(), each);
  }
}

TEST_F(RedirectSocketTest, TwoListenersEachGetTheirOwn) {
  const auto first = listen("one");
  const auto second = listen("two");
  Sending toSecond = send("two", "for-two");
  serveUntilReceived(*second, 1);
  EXPECT_EQ(toSecond.get(), RedirectAnswer::kAccepted);
  Sending toFirst = send("one", "for-one");
  serveUntilReceived(*first, 2);
  EXPECT_EQ(toFirst.get(), RedirectAnswer::kAccepted);
  EXPECT_THAT(received, ElementsAre("for-two", "for-one"));
}

TEST_F(RedirectSocketTest, NobodyWaitsForAForeignState) {
  const auto listener = listen("s");
  EXPECT_EQ(sendRedirect(folder.path(), "another", "u"), RedirectAnswer::kNobodyWaiting);
}

TEST_F(RedirectSocketTest, NobodyWaitsWhereThereIsNoFolder) {
  EXPECT_EQ(sendRedirect(folder.file("none"), "s", "u"), RedirectAnswer::kNobodyWaiting);
}

TEST_F(RedirectSocketTest, NobodyWaitsOnceTheListenerIsGone) {
  listen("s").reset();
  EXPECT_EQ(sendRedirect(folder.path(), "s", "u"), RedirectAnswer::kNobodyWaiting);
  EXPECT_NE(access(pathFor("s").c_str(), F_OK), 0);
}

TEST_F(RedirectSocketTest, ListenerThatDoesNotServeIsNotWaitedForBeyondTheDeadline) {
  const auto listener = listen("s");
  EXPECT_EQ(sendRedirect(folder.path(), "s", "u", {.deadline = 50ms}), RedirectAnswer::kNoAnswer);
}

TEST_F(RedirectSocketTest, FullQueueIsNotWaitedForBeyondTheDeadline) {
  const auto listener = listen("s");
  std::vector<std::unique_ptr<RawConnection>> others;
  for (int i = 0; i < 17; ++i)
    others.push_back(std::make_unique<RawConnection>(pathFor("s")));
  EXPECT_EQ(sendRedirect(folder.path(), "s", "u", {.deadline = 50ms}), RedirectAnswer::kNoAnswer);
}

TEST_F(RedirectSocketTest, RedirectSentBeforeServingWaitsInTheQueue) {
  const auto listener = listen("s");
  const RawConnection connection(pathFor("s"));
  ASSERT_TRUE(connection.send("early\n"));
  serveUntilReceived(*listener, 1);
  EXPECT_EQ(connection.readToEnd(), "accepted\n");
}

TEST_F(RedirectSocketTest, LongestRedirectIsCarried) {
  const auto listener = listen("s");
  const std::string url(kMaximumRedirectSize, 'u');
  Sending sent = send("s", url);
  serveUntilReceived(*listener, 1);
  EXPECT_EQ(sent.get(), RedirectAnswer::kAccepted);
  EXPECT_EQ(received.front().size(), url.size());
}

TEST_F(RedirectSocketTest, LongerOneIsRefusedUnread) {
  const auto listener = listen("s");
  Sending sent = send("s", std::string(kMaximumRedirectSize + 1, 'u'));
  EXPECT_EQ(serveUntilAnswered(*listener, sent), RedirectAnswer::kRefused);
  EXPECT_THAT(received, IsEmpty());
}

TEST_F(RedirectSocketTest, RedirectWithoutItsEndIsNotUsed) {
  const auto listener = listen("s");
  {
    const RawConnection connection(pathFor("s"));
    ASSERT_TRUE(connection.send("m.x://auth?code=cut-o"));
  }
  Sending whole = send("s", "whole");
  serveUntilReceived(*listener, 1);
  EXPECT_EQ(whole.get(), RedirectAnswer::kAccepted);
  EXPECT_THAT(received, ElementsAre("whole"));
}

TEST_F(RedirectSocketTest, SlowClientDoesNotBlockAnother) {
  const auto listener = listen("s");
  const RawConnection slow(pathFor("s"));
  ASSERT_TRUE(slow.send("half of"));
  Sending sent = send("s", "quick");
  serveUntilReceived(*listener, 1);
  EXPECT_EQ(sent.get(), RedirectAnswer::kAccepted);
  ASSERT_TRUE(slow.send(" it\n"));
  serveUntilReceived(*listener, 2);
  EXPECT_THAT(received, ElementsAre("quick", "half of it"));
}

TEST_F(RedirectSocketTest, ClientThatIsTooSlowIsDropped) {
  const auto listener = listen("s", {.deadline = 30ms});
  Sending slow([this] {
    const RawConnection connection(pathFor("s"));
    return connection.send("half of") && connection.readToEnd().empty() ? RedirectAnswer::kNoAnswer
                                                                        : RedirectAnswer::kAccepted;
  });
  EXPECT_EQ(serveUntilAnswered(*listener, slow), RedirectAnswer::kNoAnswer);
  EXPECT_THAT(received, IsEmpty());
}

TEST_F(RedirectSocketTest, SocketIsForItsUserAlone) {
  const auto listener = listen("s");
  struct stat status {};
  ASSERT_EQ(stat(pathFor("s").c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

// The processes of the test have one user: so it is the other side that expects another one.
RedirectPeer otherUser() {
  return {5000ms, geteuid() + 1};
}

TEST_F(RedirectSocketTest, RedirectOfAnotherUserIsNotTaken) {
  const auto listener = listen("s", otherUser());
  Sending sent = send("s", "u");
  EXPECT_EQ(serveUntilAnswered(*listener, sent), RedirectAnswer::kNoAnswer);
  EXPECT_THAT(received, IsEmpty());
}

TEST_F(RedirectSocketTest, RedirectIsNotGivenToAnotherUser) {
  const auto listener = listen("s");
  EXPECT_EQ(sendRedirect(folder.path(), "s", "u", otherUser()), RedirectAnswer::kNobodyWaiting);
}

// A socket as a killed process leaves it.
std::string leaveSocket(const std::string& path) {
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  EXPECT_EQ(bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return path;
}

void makeOld(const std::string& path) {
  const utimbuf times{time(nullptr) - 3600, time(nullptr) - 3600};
  EXPECT_EQ(utime(path.c_str(), &times), 0);
}

TEST_F(RedirectSocketTest, NobodyWaitsBehindTheSocketOfADeadProcess) {
  leaveSocket(pathFor("s"));
  EXPECT_EQ(sendRedirect(folder.path(), "s", "u"), RedirectAnswer::kNobodyWaiting);
}

TEST_F(RedirectSocketTest, OldSocketsOfDeadProcessesAreRemoved) {
  const std::string dead = leaveSocket(pathFor("dead"));
  makeOld(dead);
  const auto listener = listen("s");
  EXPECT_NE(access(dead.c_str(), F_OK), 0);
}

TEST_F(RedirectSocketTest, EverythingElseInTheFolderIsLeft) {
  const auto other = listen("other");
  makeOld(pathFor("other"));
  const std::string young = leaveSocket(pathFor("young"));
  const std::string foreign = leaveSocket(folder.file("foreign"));
  makeOld(foreign);
  const std::string file = folder.write("file.redirect", "text");
  makeOld(file);
  const auto listener = listen("s");
  for (const std::string& each : {pathFor("other"), young, foreign, file})
    EXPECT_EQ(access(each.c_str(), F_OK), 0) << each;
}

TEST_F(RedirectSocketTest, FolderThatCannotHoldASocketIsAFailure) {
  std::optional<Failure> failure;
  EXPECT_FALSE(RedirectListener::listen(folder.file("none"), "s", &failure));
  ASSERT_TRUE(failure);
  failure.reset();
  EXPECT_FALSE(RedirectListener::listen(folder.file(std::string(200, 'x')), "s", &failure));
  EXPECT_TRUE(failure);
}

TEST_F(RedirectSocketTest, NameTellsNothingAboutTheState) {
  const std::string name = redirectSocketName("a/../state");
  EXPECT_EQ(name, redirectSocketName("a/../state"));
  EXPECT_NE(name, redirectSocketName("another"));
  EXPECT_THAT(name, testing::MatchesRegex("[A-Za-z0-9_-]+\\.redirect"));
  EXPECT_EQ(name.size(), 31u);
}

}  // namespace

}  // namespace host
