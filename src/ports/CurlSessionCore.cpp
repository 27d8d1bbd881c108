#include "src/ports/CurlSessionCore.h"

#include <utility>

#include "src/platform/URLErrors.h"
#include "src/ports/CurlSessionRequest.h"

namespace qvr {

CurlSessionCore::CurlSessionCore(const URLSessionOptions& options, CurlLoader loader)
    : options_(options),
      loader_(loader),
      callbackQueue_(makeSerialQueue("QVROAuth2Client.URLSession.callbacks")) {}

void CurlSessionCore::start(Ref<CurlSessionTask> task) {
  CurlSessionOutcome outcome;
  if (!task->isCanceling()) {
    const URL& url = task->request().url;
    if (const auto code = refusalOfRequest(task->request())) {
      outcome.error = makeURLError(*code, url);
    } else {
      const std::string problem = addToLoop(task);
      if (problem.empty()) return;
      outcome.error = makeURLError(NSURLErrorUnknown, url, problem);
    }
  }
  CurlSessionTask::finish(std::move(task), std::move(outcome), *callbackQueue_);
}

void CurlSessionCore::wake() {
  MutexLock lock(mutex_);
  if (loop_) loop_->wake();
}

// Empty when the thread has taken the task.
std::string CurlSessionCore::addToLoop(const Ref<CurlSessionTask>& task) {
  MutexLock lock(mutex_);
  std::string problem = ensureLoop();
  if (problem.empty()) loop_->add(task);
  return problem;
}

std::string CurlSessionCore::ensureLoop() {
  if (loop_) return {};
  const CurlLibrary& curl = loader_();
  if (!curl.problem.empty()) return curl.problem;
  auto loop = std::make_unique<CurlSessionLoop>(curl, options_, *callbackQueue_);
  std::string problem = loop->startThread();
  if (problem.empty()) loop_ = std::move(loop);
  return problem;
}

}  // namespace qvr
