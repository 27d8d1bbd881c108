// A queue that runs its functions when the test says so, on the test's thread.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Executor.h"
#include "src/platform/Mutex.h"

namespace support {

class ManualQueue final : public qvr::Executor {
 public:
  explicit ManualQueue(std::string label) : label_(std::move(label)) {}

  void async(std::function<void()> function) override;
  std::string label() const override { return label_; }

  // Runs the oldest function; false when there is none. Lets its exception out.
  bool runOne();

  std::size_t pending() const;

 private:
  const std::string label_;
  mutable qvr::Mutex mutex_;
  std::deque<std::function<void()>> functions_ QVR_GUARDED_BY(mutex_);
};

// Makes manual queues and remembers them, in the order in which they were made.
class ManualQueues {
 public:
  qvr::Ref<qvr::Executor> make(const std::string& label);

  // The queue whose label ends with this; null when none was made.
  qvr::Ref<ManualQueue> named(const std::string& ending) const;
  std::vector<std::string> labels() const;

  // Runs everything on all queues, and what that adds, until nothing is left.
  void runAll();

 private:
  std::vector<qvr::Ref<ManualQueue>> queues_;
};

}  // namespace support
