// What a session does when libcurl itself is missing or fails, when a name look-up hangs, and on
// whose thread.
#include <dlfcn.h>
#include <netdb.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "src/ports/CurlSession.h"
#include "tests/ports/CurlSessionFixture.h"

namespace support {
namespace {

// Where look-ups of "hangs.test" wait. A test that makes one puts a new one here first.
struct HangingLookup {
  Event begun;
  Event mayEnd;
};
HangingLookup& hangingLookup() {
  static auto& lookup = *new HangingLookup;
  return lookup;
}

bool isBlocked(int signal) {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return ::sigismember(&mask, signal) == 1;
}

std::atomic<bool> hangingLookUpTakesSignals;

}  // namespace
}  // namespace support

// Stands before the system's function, so that no test asks a name server.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  const std::string_view host = name != nullptr ? name : "";
  if (host == "hangs.test") {
    const support::HangingLookup lookup = support::hangingLookup();  // may outlive its test
    support::hangingLookUpTakesSignals = !support::isBlocked(SIGTERM);
    lookup.begun.happen();
    lookup.mayEnd.wait(60);
    return EAI_NONAME;
  }
  if (host.ends_with(".test")) return EAI_NONAME;
  static auto* const system =
      reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return system(name, service, hints, result);
}

namespace support {
namespace {

class CurlSessionFaultTest : public CurlSessionTest {
 protected:
  void useLibrary(qvr::CurlLoader loader) { session = qvr::makeCurlSession(options, loader); }

  void expectUnknownError(const Reply& reply, std::string_view partOfReason) {
    EXPECT_EQ(codeOf(reply), qvr::NSURLErrorUnknown);
    ASSERT_TRUE(reply.error);
    EXPECT_EQ(reply.error->localizedDescription(), "unknown error");
    const qvr::Value* const reason = reply.error->userInfoValue(qvr::NSDebugDescriptionErrorKey);
    ASSERT_NE(reason, nullptr);
    EXPECT_THAT(reason->text().value(), testing::HasSubstr(std::string(partOfReason)));
    EXPECT_EQ(reply.calls, 1);
  }
};

TEST_F(CurlSessionFaultTest, SaysWhichLibraryIsMissing) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const auto& missing = *new qvr::CurlLibrary(qvr::CurlLibrary::open("libabsent.so.4"));
    return missing;
  });
  for (int i = 0; i < 2; ++i)
    expectUnknownError(get(server.url()), "libabsent.so.4");
}

TEST_F(CurlSessionFaultTest, SaysWhichFunctionALibraryLacks) {
  const auto library = qvr::CurlLibrary::open("libm.so.6");
  EXPECT_EQ(library.problem, "libm.so.6 has no function curl_easy_init");
}

TEST_F(CurlSessionFaultTest, LoadsTheLibraryOnlyForARequestThatIsSent) {
  static bool isLoaded;
  isLoaded = false;
  useLibrary([]() -> const qvr::CurlLibrary& {
    isLoaded = true;
    return qvr::CurlLibrary::shared();
  });
  const ReplyWaiter waiter;
  const auto task = session->dataTask(requestFor(server.url()), waiter.handler());
  EXPECT_FALSE(isLoaded);
  task->cancel();
  task->resume();
  waiter.wait();
  get("m.x://auth");
  EXPECT_FALSE(isLoaded);
  get(server.url());
  EXPECT_TRUE(isLoaded);
}

// The real library with one function that fails.
template <class Break>
qvr::CurlLibrary brokenLibrary(Break breakIt) {
  qvr::CurlLibrary library = qvr::CurlLibrary::shared();
  breakIt(library);
  return library;
}

TEST_F(CurlSessionFaultTest, FailsTheRequestWhenNoSessionCanBeMade) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary(
        [](auto& library) { library.multiInit = []() -> CURLM* { return nullptr; }; });
    return broken;
  });
  expectUnknownError(get(server.url()), "cannot make a session");
}

TEST_F(CurlSessionFaultTest, FailsTheRequestWhenTheSessionCannotBeWoken) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary(
        [](auto& library) { library.multiWakeup = [](CURLM*) { return CURLM_WAKEUP_FAILURE; }; });
    return broken;
  });
  expectUnknownError(get(server.url()), "cannot make a session");
}

TEST_F(CurlSessionFaultTest, FailsTheRequestWhenNoHandleCanBeMade) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken =
        brokenLibrary([](auto& library) { library.easyInit = []() -> CURL* { return nullptr; }; });
    return broken;
  });
  expectUnknownError(get(server.url()), "");
}

TEST_F(CurlSessionFaultTest, FailsTheRequestWhenAHeaderCannotBeAdded) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary([](auto& library) {
      library.slistAppend = [](curl_slist*, const char*) -> curl_slist* { return nullptr; };
    });
    return broken;
  });
  expectUnknownError(get(server.url()), "memory");
}

CURLcode refuseOption(CURL*, CURLoption, ...) {
  return CURLE_UNKNOWN_OPTION;
}

TEST_F(CurlSessionFaultTest, SendsNothingWhenAnOptionIsRefused) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken =
        brokenLibrary([](auto& library) { library.easySetopt = refuseOption; });
    return broken;
  });
  expectUnknownError(get(server.url()), "option");
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(CurlSessionFaultTest, FailsTheRequestWhenItCannotBeAdded) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary([](auto& library) {
      library.multiAddHandle = [](CURLM*, CURL*) { return CURLM_OUT_OF_MEMORY; };
    });
    return broken;
  });
  expectUnknownError(get(server.url()), "");
}

TEST_F(CurlSessionFaultTest, FailsWhatIsInFlightWhenTheTransfersCannotGoOn) {
  static std::atomic<bool> mayFail;
  mayFail = true;
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary([](auto& library) {
      library.multiPerform = [](CURLM* multi, int* running) {
        const CURLMcode code = qvr::CurlLibrary::shared().multiPerform(multi, running);
        return *running > 0 && mayFail.exchange(false) ? CURLM_INTERNAL_ERROR : code;
      };
    });
    return broken;
  });
  expectUnknownError(get(server.url()), "");
  EXPECT_EQ(get(server.url()).body(), "{}") << "the session did not recover";
}

TEST_F(CurlSessionFaultTest, FailsWhatIsInFlightWhenItCannotBeWaitedFor) {
  static std::atomic<bool> mayFail;
  mayFail = true;
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary broken = brokenLibrary([](auto& library) {
      library.multiPoll = [](CURLM* multi, curl_waitfd* more, unsigned count, int timeout,
                             int* ready) {
        return mayFail.exchange(false)
                   ? CURLM_OUT_OF_MEMORY
                   : qvr::CurlLibrary::shared().multiPoll(multi, more, count, timeout, ready);
      };
    });
    return broken;
  });
  expectUnknownError(get(server.url()), "");
  EXPECT_EQ(get(server.url()).body(), "{}") << "the session did not recover";
}

TEST_F(CurlSessionFaultTest, TellsAHostThatCannotBeFound) {
  const std::string url = "https://absent.test/token";
  EXPECT_THAT(get(url).error,
              IsErrorWithUserInfo(
                  qvr::NSURLErrorDomain, qvr::NSURLErrorCannotFindHost,
                  failureOf(url, "A server with the specified hostname could not be found.")));
}

TEST_F(CurlSessionFaultTest, NameLookUpThatHangsHoldsUpNeitherCancelNorDeadlinesNorOthers) {
  hangingLookup() = HangingLookup();
  options.idleTimeoutSeconds = 0.3;
  session = qvr::makeURLSession(options);
  const ReplyWaiter cancelled;
  const auto task = session->dataTask(requestFor("http://hangs.test/"), cancelled.handler());
  const ReplyWaiter overdue;
  const double seconds = secondsOf([&] {
    task->resume();
    ASSERT_TRUE(hangingLookup().begun.wait());
    task->cancel();
    EXPECT_EQ(codeOf(cancelled.wait()), qvr::NSURLErrorCancelled);
    EXPECT_EQ(codeOf(get("http://hangs.test/")), qvr::NSURLErrorTimedOut);
    EXPECT_EQ(get(server.url()).body(), "{}");
    session = nullptr;
  });
  EXPECT_LT(seconds, 10) << "something waited for the look-up";
  hangingLookup().mayEnd.happen();
}

// A line of /proc's status file of each of the session's threads.
std::vector<std::string> threadStatuses(const std::string& key) {
  std::vector<std::string> statuses;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    std::ifstream status(thread.path() / "status");
    for (std::string line; name == "qvr-https" && std::getline(status, line);) {
      if (line.starts_with(key + ":\t")) statuses.push_back(line.substr(key.size() + 2));
    }
  }
  return statuses;
}

TEST_F(CurlSessionFaultTest, LeavesTheSignalsOfTheProcessToOtherThreads) {
  get(server.url());
  const std::vector<std::string> blocked = threadStatuses("SigBlk");
  ASSERT_FALSE(blocked.empty());
  for (const std::string& each : blocked) {
    const unsigned long long mask = std::stoull(each, nullptr, 16);
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1})
      EXPECT_TRUE(mask >> (signal - 1) & 1) << signal;
  }
}

TEST_F(CurlSessionFaultTest, SleepsWhileARequestWaitsForItsAnswer) {
  options.idleTimeoutSeconds = 1;
  session = qvr::makeURLSession(options);
  server.enqueue(rawAnswer("", Afterwards::kHang));
  const ReplyWaiter waiter;
  session->dataTask(requestFor(server.url()), waiter.handler())->resume();
  ASSERT_TRUE(server.waitForRequests(1));
  const auto wakeUps = [] {
    long sum = 0;
    for (const std::string& each : threadStatuses("voluntary_ctxt_switches"))
      sum += std::stol(each);
    return sum;
  };
  const long before = wakeUps();
  EXPECT_EQ(codeOf(waiter.wait()), qvr::NSURLErrorTimedOut);
  EXPECT_GT(wakeUps(), 0) << "the session's threads were not found";
  EXPECT_LT(wakeUps() - before, 20) << "something polls";
}

// Threads on which requests were sent, in the order of the requests.
class SendingThreads {
 public:
  void add() {
    const std::lock_guard lock(mutex_);
    ids_.push_back(std::this_thread::get_id());
  }
  std::vector<std::thread::id> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(ids_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::thread::id> ids_;
};

SendingThreads& sendingThreads() {
  static SendingThreads threads;
  return threads;
}

const qvr::CurlLibrary& libraryThatNotesThreads() {
  static const qvr::CurlLibrary library = brokenLibrary([](auto& table) {
    table.multiAddHandle = [](CURLM* multi, CURL* easy) {
      sendingThreads().add();
      return qvr::CurlLibrary::shared().multiAddHandle(multi, easy);
    };
  });
  return library;
}

// The first request reads the certificate store, which takes longer than a caller should wait.
TEST_F(CurlSessionFaultTest, SendsAllButTheFirstRequestOnTheThreadThatResumesThem) {
  useLibrary(libraryThatNotesThreads);
  sendingThreads().take();
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(get(server.url()).body(), "{}");
  const std::vector<std::thread::id> threads = sendingThreads().take();
  ASSERT_EQ(threads.size(), 4u);
  EXPECT_NE(threads[0], std::this_thread::get_id());
  for (std::size_t i = 1; i < threads.size(); ++i)
    EXPECT_EQ(threads[i], std::this_thread::get_id());
}

TEST_F(CurlSessionFaultTest, SendsNothingOnTheThreadThatResumesWhenItWouldWaitForNames) {
  useLibrary([]() -> const qvr::CurlLibrary& {
    static const qvr::CurlLibrary library = [] {
      qvr::CurlLibrary table = libraryThatNotesThreads();
      table.versionInfo = [](CURLversion age) {
        static curl_version_info_data version;
        version = *qvr::CurlLibrary::shared().versionInfo(age);
        version.features &= ~CURL_VERSION_ASYNCHDNS;
        return &version;
      };
      return table;
    }();
    return library;
  });
  sendingThreads().take();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(get(server.url()).body(), "{}");
  const std::vector<std::thread::id> threads = sendingThreads().take();
  EXPECT_EQ(threads.size(), 3u);
  EXPECT_THAT(threads, testing::Not(testing::Contains(std::this_thread::get_id())));
}

TEST_F(CurlSessionFaultTest, LooksNamesUpOnThreadsWithoutSignalsWhoeverResumes) {
  hangingLookup() = HangingLookup();
  get(server.url());
  hangingLookUpTakesSignals = true;
  const ReplyWaiter waiter;
  const auto task = session->dataTask(requestFor("http://hangs.test/"), waiter.handler());
  task->resume();
  ASSERT_TRUE(hangingLookup().begun.wait());
  EXPECT_FALSE(hangingLookUpTakesSignals);
  EXPECT_FALSE(isBlocked(SIGTERM)) << "the thread's mask was changed";
  task->cancel();
  EXPECT_EQ(codeOf(waiter.wait()), qvr::NSURLErrorCancelled);
  hangingLookup().mayEnd.happen();
}

// Two processes must not write to one TLS connection.
TEST_F(CurlSessionFaultTest, ForkedChildLeavesTheConnectionsOfItsParent) {
  get(server.url());
  const auto task = session->dataTask(requestFor(server.url() + "child"), nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(10);  // it may find the session's locks held for good
    task->resume();
    ::_exit(0);
  }
  ASSERT_GT(child, 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(get(server.url()).body(), "{}");
  EXPECT_EQ(server.requests().size(), 2u) << "the child sent its request";
}

const qvr::CurlLibrary& libraryThatWritesToClosedPipes() {
  static const qvr::CurlLibrary library = brokenLibrary([](auto& table) {
    table.multiPerform = [](CURLM* multi, int* running) {
      ::pthread_kill(::pthread_self(), SIGPIPE);
      return qvr::CurlLibrary::shared().multiPerform(multi, running);
    };
  });
  return library;
}

bool isPending(int signal) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, signal) == 1;
}

TEST_F(CurlSessionFaultTest, KeepsTheSignalOfAClosedPipeFromTheThreadThatResumes) {
  useLibrary(libraryThatWritesToClosedPipes);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(get(server.url()).body(), "{}");
  EXPECT_FALSE(isPending(SIGPIPE));
  EXPECT_FALSE(isBlocked(SIGPIPE)) << "the thread's mask was changed";
}

TEST_F(CurlSessionFaultTest, LeavesTheHostsOwnPendingSignalOfAClosedPipe) {
  useLibrary(libraryThatWritesToClosedPipes);
  get(server.url());
  sigset_t pipe;
  ::sigemptyset(&pipe);
  ::sigaddset(&pipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  ::pthread_kill(::pthread_self(), SIGPIPE);
  EXPECT_EQ(get(server.url()).body(), "{}");
  EXPECT_TRUE(isPending(SIGPIPE));
  int signal = 0;
  ::sigwait(&pipe, &signal);
  ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

}  // namespace
}  // namespace support
