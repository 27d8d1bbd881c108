// The serial executor: a list of functions and one thread that runs them in order.

#include <condition_variable>
#include <deque>
#include <memory>
#include <optional>
#include <thread>

#include "QVROAuth2Client/platform/Executor.h"
#include "src/platform/Mutex.h"

namespace qvr {
inline namespace v1 {

namespace {

// Shared by the queue and its thread, which may outlive the queue while functions are waiting.
class Backlog : public std::enable_shared_from_this<Backlog> {
 public:
  // The thread comes first: when none can be started, the function is not taken either.
  void push(std::function<void()> function) {
    {
      MutexLock lock(mutex_);
      if (!isStarted_) std::thread(&Backlog::drain, shared_from_this()).detach();
      isStarted_ = true;
      functions_.push_back(std::move(function));
    }
    changed_.notify_one();  // without the lock, which the thread takes as it wakes
  }

  void close() {
    {
      MutexLock lock(mutex_);
      isClosed_ = true;
    }
    changed_.notify_one();
  }

 private:
  // An exception that leaves a function ends the process here, as the contract says.
  void drain() noexcept {
    while (const std::optional<std::function<void()>> function = pop())
      (*function)();
  }

  // The next function, waiting for it; nothing when the queue is gone and everything has run.
  std::optional<std::function<void()>> pop() {
    MutexLock lock(mutex_);
    while (functions_.empty() && !isClosed_)
      waitForChange();
    if (functions_.empty()) return std::nullopt;
    std::function<void()> function = std::move(functions_.front());
    functions_.pop_front();
    return function;
  }

  void waitForChange() QVR_REQUIRES(mutex_) {
    std::unique_lock<std::mutex> held(mutex_.native(), std::adopt_lock);
    changed_.wait(held);
    held.release();  // it stays locked
  }

  Mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> functions_ QVR_GUARDED_BY(mutex_);
  bool isStarted_ QVR_GUARDED_BY(mutex_) = false;
  bool isClosed_ QVR_GUARDED_BY(mutex_) = false;
};

class SerialQueue final : public Executor {
 public:
  explicit SerialQueue(std::string label)
      : label_(std::move(label)), backlog_(std::make_shared<Backlog>()) {}

  void async(std::function<void()> function) override {
    const std::shared_ptr<Backlog> backlog = backlog_;  // the function may hold the last reference
    backlog->push(std::move(function));
  }

  std::string label() const override { return label_; }

 private:
  ~SerialQueue() override { backlog_->close(); }

  const std::string label_;
  const std::shared_ptr<Backlog> backlog_;
};

}  // namespace

Ref<Executor> makeSerialQueue(std::string label) {
  return makeRef<SerialQueue>(std::move(label));
}

}  // namespace v1
}  // namespace qvr
