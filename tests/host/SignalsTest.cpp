// Signals that ask the command to end, held back while something must not be cut in two.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <thread>
#include <utility>

#include "host/PendingRequest.h"
#include "host/Signals.h"
#include "tests/host/ScopedDeadline.h"

namespace {

// How a child ends that runs the function: its exit status, or 128 and the signal.
int ending(const std::function<int()>& function) {
  const pid_t child = fork();
  if (child == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);  // whatever a test before has left
    _exit(function());
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool isPending(int number) {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, number) == 1;
}

TEST(SignalsTest, ABlockedSignalActsAtTheEndOfTheScope) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    const int status = ending([number] {
      {
        const host::TerminationBlocked blocked;
        raise(number);
        if (!isPending(number)) return 1;
      }
      return 2;
    });
    EXPECT_EQ(status, 128 + number);
  }
}

TEST(SignalsTest, AnAllowingScopeWithinABlockedOneEndsTheProcess) {
  EXPECT_EQ(ending([]() -> int {
              const host::TerminationBlocked blocked;
              raise(SIGTERM);
              const host::TerminationAllowed allowed;
              return 1;
            }),
            128 + SIGTERM);
}

TEST(SignalsTest, TheScopesRestoreWhatWasBefore) {
  EXPECT_EQ(ending([]() -> int {
              { const host::TerminationBlocked blocked; }
              raise(SIGTERM);
              return 1;
            }),
            128 + SIGTERM);
}

// As nohup and a shell's background jobs have it.
TEST(SignalsTest, ASignalThatIsIgnoredIsNeitherBlockedNorReported) {
  const int status = ending([]() -> int {
    signal(SIGHUP, SIG_IGN);
    const host::TerminationBlocked blocked;
    const host::SignalWatch watch;
    raise(SIGHUP);
    _exit(!isPending(SIGHUP) && host::takeSignal(watch.fileDescriptor()) == 0 ? 7 : 1);
  });
  EXPECT_EQ(status, 7);
}

host::SignalledOutcome<int> answered(int value) {
  const host::SignalledOutcome<int> outcome;
  outcome.deliver(value);
  return outcome;
}

TEST(PendingRequestTest, AnAnswerThatIsThereIsTakenWhateverSignalIsPending) {
  const int status = ending([]() -> int {
    const host::TerminationBlocked blocked;
    raise(SIGTERM);
    const auto answer = host::answerOfPendingRequest(answered(7), 30);
    _exit(answer.value_or(0));
  });
  EXPECT_EQ(status, 7);
}

TEST(PendingRequestTest, IsGivenSomeSecondsWhenTheCommandsTimeIsOver) {
  const host_test::ScopedDeadline over(0);
  const host::TerminationBlocked blocked;
  const host::SignalledOutcome<int> outcome;
  std::thread late([outcome] { outcome.deliver(7); });
  EXPECT_EQ(host::answerOfPendingRequest(outcome, 30), 7);
  late.join();
}

TEST(PendingRequestTest, NoAnswerInTimeIsNone) {
  const host::TerminationBlocked blocked;
  EXPECT_FALSE(host::answerOfPendingRequest(host::SignalledOutcome<int>(), 0));
}

// Runs `then` on a thread, once the wait has said on standard error that it goes on.
class AfterTheSentence {
 public:
  explicit AfterTheSentence(std::function<void()> then) {
    int ends[2];
    if (pipe(ends) != 0) _exit(100);
    dup2(ends[1], STDERR_FILENO);
    std::thread([input = ends[0], then = std::move(then)] {
      char byte = 0;
      if (read(input, &byte, 1) == 1) then();
    }).detach();
  }
};

TEST(PendingRequestTest, AnAnswerAfterOneSignalStillCountsAndTheSignalActsThen) {
  const int status = ending([]() -> int {
    const host::TerminationBlocked blocked;
    raise(SIGINT);
    const host::SignalledOutcome<int> outcome;
    const AfterTheSentence answer([outcome] { outcome.deliver(7); });
    const auto value = host::answerOfPendingRequest(outcome, 30);
    _exit(isPending(SIGINT) ? value.value_or(1) : 2);
  });
  EXPECT_EQ(status, 7);
}

TEST(PendingRequestTest, ASecondSignalEndsTheWait) {
  const int status = ending([]() -> int {
    const host::TerminationBlocked blocked;
    raise(SIGINT);
    const AfterTheSentence again([] { kill(getpid(), SIGINT); });
    const auto value = host::answerOfPendingRequest(host::SignalledOutcome<int>(), 30);
    _exit(!value && isPending(SIGINT) ? 7 : 2);
  });
  EXPECT_EQ(status, 7);
}

}  // namespace
