#include "src/ports/CurlSessionCrew.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

namespace qvr {
namespace {

// Signals are for the host's threads. A write to a connection that the peer has closed would raise
// SIGPIPE on this one.
sigset_t allSignals() {
  sigset_t all;
  ::sigfillset(&all);
  return all;
}

void settleIn() {
  ::pthread_setname_np(::pthread_self(), "qvr-https");
  const sigset_t all = allSignals();
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

// Makes a host's thread one of the session's for a while: the threads that libcurl starts meanwhile
// inherit that no signal is for them, and a SIGPIPE of its own making is kept from the host.
class WithoutSignals {
 public:
  WithoutSignals() {
    const sigset_t all = allSignals();
    ::pthread_sigmask(SIG_SETMASK, &all, &mask_);
    wasPending_ = isPipePending();
  }

  ~WithoutSignals() {
    if (!wasPending_ && isPipePending()) takePipe();
    ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }

  WithoutSignals(const WithoutSignals&) = delete;
  WithoutSignals& operator=(const WithoutSignals&) = delete;

 private:
  static bool isPipePending() {
    sigset_t pending;
    ::sigpending(&pending);
    return ::sigismember(&pending, SIGPIPE) == 1;
  }

  static void takePipe() {
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    const timespec now{};
    while (::sigtimedwait(&pipe, nullptr, &now) == -1 && errno == EINTR) {
    }
  }

  sigset_t mask_;
  bool wasPending_ = false;
};

}  // namespace

std::string CurlSessionCrew::employ(std::unique_ptr<CurlSessionLoop> loop) {
  MutexLock lock(mutex_);
  try {
    startCaller();
    startDeputy();
  } catch (const std::system_error& error) {
    return error.what();
  }
  loop_ = std::move(loop);
  process_ = ::getpid();
  return {};
}

void CurlSessionCrew::startCaller() {
  if (!hasCaller_) std::thread(&CurlSessionCrew::runCaller, shared_from_this()).detach();
  hasCaller_ = true;
}

void CurlSessionCrew::startDeputy() {
  if (!hasDeputy_) std::thread(&CurlSessionCrew::runDeputy, shared_from_this()).detach();
  hasDeputy_ = true;
}

void CurlSessionCrew::deliver(Ref<CurlSessionTask> task) {
  MutexLock lock(mutex_);
  startCaller();
  finished_.push_back(std::move(task));
  callerIsNeeded_.notify_one();
  wakeAttendant();  // it may be the caller
}

void CurlSessionCrew::send(Ref<CurlSessionTask> task) {
  MutexLock lock(mutex_);
  arrivals_.push_back(std::move(task));
  if (isAttended_) return wakeAttendant();
  isBusy_ = true;
  if (maySendHere()) sendHere();
  callForAttention();
}

// The first request reads the certificate store, and a host's thread must not wait for that, nor
// for a name server. A forked child has a copy of the connections: a record sent by both processes
// would be encrypted twice with one nonce (RFC 8446 section 5.3).
bool CurlSessionCrew::maySendHere() const {
  return hasFinishedOne_ && loop_->looksNamesUpElsewhere() && ::getpid() == process_;
}

// Whoever attends the loop sees what others have changed before they woke it.
void CurlSessionCrew::wake() {
  MutexLock lock(mutex_);
  wakeAttendant();
}

void CurlSessionCrew::wakeAttendant() {
  if (isAttended_) loop_->wake();
}

void CurlSessionCrew::close() {
  MutexLock lock(mutex_);
  isClosed_ = true;
  callerIsNeeded_.notify_one();
  deputyIsNeeded_.notify_one();
}

// An exception that leaves a handler ends the process.
void CurlSessionCrew::runCaller() noexcept {
  settleIn();
  MutexLock lock(mutex_);
  while (!isClosed_) {
    if (!finished_.empty()) {
      callHandlers();
    } else if (isUnattended()) {
      attend();
    } else {
      callerIsNeeded_.wait(mutex_);
    }
  }
}

void CurlSessionCrew::runDeputy() noexcept {
  settleIn();
  MutexLock lock(mutex_);
  while (!isClosed_) {
    if (isUnattended() && isCallingHandlers_) {
      attend();
    } else {
      deputyIsNeeded_.wait(mutex_);
    }
  }
}

bool CurlSessionCrew::isUnattended() const {
  return isBusy_ && !isAttended_;
}

void CurlSessionCrew::callForAttention() {
  if (!isUnattended()) return;
  (isCallingHandlers_ ? deputyIsNeeded_ : callerIsNeeded_).notify_one();
}

void CurlSessionCrew::callHandlers() {
  isCallingHandlers_ = true;
  callForAttention();
  while (!finished_.empty()) {
    Ref<CurlSessionTask> task = std::move(finished_.front());
    finished_.pop_front();
    mutex_.unlock();
    task->callHandler();
    task = nullptr;
    mutex_.lock();
  }
  isCallingHandlers_ = false;
}

// Until there is nothing more to wait for, or somebody to be called.
void CurlSessionCrew::attend() {
  isAttended_ = true;
  do {
    takeArrivals();
    mutex_.unlock();
    std::vector<Ref<CurlSessionTask>> finished = loop_->advance();
    if (finished.empty()) loop_->wait();
    mutex_.lock();
    addFinished(std::move(finished));
  } while (isBusy_ && finished_.empty());
  isAttended_ = false;
  if (!finished_.empty()) callerIsNeeded_.notify_one();
}

// One step, which sends the request over a connection that is there, and waits for nothing.
void CurlSessionCrew::sendHere() noexcept {
  isAttended_ = true;
  takeArrivals();
  mutex_.unlock();
  std::vector<Ref<CurlSessionTask>> finished;
  {
    const WithoutSignals guard;
    finished = loop_->advance();
  }
  mutex_.lock();
  addFinished(std::move(finished));
  isAttended_ = false;
  if (!finished_.empty()) callerIsNeeded_.notify_one();
}

void CurlSessionCrew::takeArrivals() {
  for (Ref<CurlSessionTask>& task : arrivals_)
    loop_->add(std::move(task));
  arrivals_.clear();
}

void CurlSessionCrew::addFinished(std::vector<Ref<CurlSessionTask>> finished) {
  hasFinishedOne_ |= !finished.empty();
  std::move(finished.begin(), finished.end(), std::back_inserter(finished_));
  isBusy_ = loop_->isBusy() || !arrivals_.empty();
}

}  // namespace qvr
