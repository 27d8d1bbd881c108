#include "tests/support/ManualQueue.h"

namespace support {

void ManualQueue::async(std::function<void()> function) {
  qvr::MutexLock lock(mutex_);
  functions_.push_back(std::move(function));
}

bool ManualQueue::runOne() {
  std::function<void()> function;
  {
    qvr::MutexLock lock(mutex_);
    if (functions_.empty()) return false;
    function = std::move(functions_.front());
    functions_.pop_front();
  }
  function();
  return true;
}

std::size_t ManualQueue::pending() const {
  qvr::MutexLock lock(mutex_);
  return functions_.size();
}

qvr::Ref<qvr::Executor> ManualQueues::make(const std::string& label) {
  queues_.push_back(qvr::makeRef<ManualQueue>(label));
  return queues_.back();
}

qvr::Ref<ManualQueue> ManualQueues::named(const std::string& ending) const {
  for (const qvr::Ref<ManualQueue>& queue : queues_) {
    if (queue->label().ends_with(ending)) return queue;
  }
  return nullptr;
}

std::vector<std::string> ManualQueues::labels() const {
  std::vector<std::string> labels;
  for (const qvr::Ref<ManualQueue>& queue : queues_)
    labels.push_back(queue->label());
  return labels;
}

void ManualQueues::runAll() {
  for (bool ran = true; ran;) {
    ran = false;
    for (std::size_t i = 0; i < queues_.size(); ++i) {  // running may make more queues
      while (queues_[i]->runOne())
        ran = true;
    }
  }
}

}  // namespace support
