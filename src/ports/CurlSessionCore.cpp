#include "src/ports/CurlSessionCore.h"

#include <utility>

#include "src/platform/URLErrors.h"
#include "src/ports/CurlSessionRequest.h"

namespace qvr {

CurlSessionCore::CurlSessionCore(const URLSessionOptions& options, CurlLoader loader)
    : options_(options), loader_(loader), crew_(std::make_shared<CurlSessionCrew>()) {}

CurlSessionCore::~CurlSessionCore() {
  crew_->close();
}

void CurlSessionCore::start(Ref<CurlSessionTask> task) {
  CurlSessionOutcome outcome;
  if (!task->isCanceling()) {
    const URL& url = task->request().url;
    if (const auto code = refusalOfRequest(task->request())) {
      outcome.error = makeURLError(*code, url);
    } else {
      const std::string problem = ensureLoop();
      if (problem.empty()) return crew_->send(std::move(task));
      outcome.error = makeURLError(NSURLErrorUnknown, url, problem);
    }
  }
  task->setOutcome(std::move(outcome));
  crew_->deliver(std::move(task));
}

// Empty when there is one.
std::string CurlSessionCore::ensureLoop() {
  MutexLock lock(mutex_);
  if (hasLoop_) return {};
  const CurlLibrary& curl = loader_();
  if (!curl.problem.empty()) return curl.problem;
  auto loop = std::make_unique<CurlSessionLoop>(curl, options_);
  std::string problem = loop->problem();
  if (problem.empty()) problem = crew_->employ(std::move(loop));
  hasLoop_ = problem.empty();
  return problem;
}

}  // namespace qvr
