#include "src/ports/CurlSessionCrew.h"

#include <pthread.h>
#include <signal.h>

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
void settleIn() {
  ::pthread_setname_np(::pthread_self(), "qvr-https");
  sigset_t all;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

// Keeps a SIGPIPE of this thread's own making from the host, whose thread it is.
class WithoutSIGPIPE {
 public:
  WithoutSIGPIPE() {
    ::sigemptyset(&pipe_);
    ::sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &mask_);
  }

  ~WithoutSIGPIPE() {
    const timespec now{};
    while (!wasPending_ && ::sigtimedwait(&pipe_, nullptr, &now) == -1 && errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }

  WithoutSIGPIPE(const WithoutSIGPIPE&) = delete;
  WithoutSIGPIPE& operator=(const WithoutSIGPIPE&) = delete;

 private:
  sigset_t pipe_;
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
}

void CurlSessionCrew::send(Ref<CurlSessionTask> task) {
  MutexLock lock(mutex_);
  arrivals_.push_back(std::move(task));
  if (isAttended_) return loop_->wake();
  isBusy_ = true;
  if (hasFinishedOne_) sendHere();
  callForAttention();
}

// Whoever attends the loop sees what others have changed before they woke it.
void CurlSessionCrew::wake() {
  MutexLock lock(mutex_);
  if (isAttended_) loop_->wake();
}

void CurlSessionCrew::close() {
  MutexLock lock(mutex_);
  isClosed_ = true;
  callerIsNeeded_.notify_one();
  deputyIsNeeded_.notify_one();
}

void CurlSessionCrew::runCaller() {
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

void CurlSessionCrew::runDeputy() {
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
    const bool hasFinished = !finished.empty();
    if (!hasFinished) loop_->wait();
    mutex_.lock();
    addFinished(std::move(finished));
    isBusy_ = loop_->isBusy() || !arrivals_.empty();
  } while (isBusy_ && finished_.empty());
  isAttended_ = false;
  if (!finished_.empty()) callerIsNeeded_.notify_one();
}

// One step, which sends the request over a connection that is there, and waits for nothing.
void CurlSessionCrew::sendHere() {
  isAttended_ = true;
  takeArrivals();
  mutex_.unlock();
  std::vector<Ref<CurlSessionTask>> finished;
  {
    const WithoutSIGPIPE guard;
    finished = loop_->advance();
  }
  mutex_.lock();
  addFinished(std::move(finished));
  isBusy_ = loop_->isBusy() || !arrivals_.empty();
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
}

}  // namespace qvr
