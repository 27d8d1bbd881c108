// Where asynchronous work and completion handlers run.
#pragma once

#include <functional>
#include <string>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"

namespace qvr {
inline namespace v1 {

// What an executor owes: each function handed over runs once, later, never inside async() itself.
// An exception that leaves a function is not caught: it ends the process.
class QVR_EXPORT Executor : public Object {
 public:
  // May be called from any thread, from a running function too.
  virtual void async(std::function<void()> function) = 0;

  // The name under which the executor was made; empty when it has none.
  virtual std::string label() const = 0;
};

// Makes the executor that the library uses for its queues: it must run functions one at a time, in
// the order in which they were handed over.
using SerialQueueFactory = std::function<Ref<Executor>(const std::string& label)>;

// A serial executor with a thread of its own, which starts with the first function. Functions still
// waiting when the last reference goes are run before the thread ends.
QVR_EXPORT Ref<Executor> makeSerialQueue(std::string label);

}  // namespace v1
}  // namespace qvr
