// A text property whose getter and setter are each atomic: a reader gets a whole value of its own,
// whatever other threads store meanwhile.
#pragma once

#include <utility>

#include "QVROAuth2Client/platform/Text.h"
#include "src/platform/Mutex.h"

class AtomicText {
 public:
  AtomicText() = default;
  explicit AtomicText(qvr::Text value) : value_(std::move(value)) {}

  qvr::Text get() const {
    qvr::MutexLock lock(mutex_);
    return value_;
  }

  void set(qvr::TextView value) {
    qvr::Text copy = value.text();
    qvr::MutexLock lock(mutex_);
    value_.swap(copy);  // the old value is freed after the lock
  }

 private:
  mutable qvr::Mutex mutex_;
  qvr::Text value_ QVR_GUARDED_BY(mutex_);
};
