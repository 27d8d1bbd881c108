#include "src/ports/CurlSessionLoop.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <system_error>
#include <utility>

namespace qvr {
namespace {

using TimePoint = CurlSessionTransfer::Clock::time_point;

constexpr long kMaximumConnectionsPerHost = 6;

// The bundle that libcurl was built for, or that of another distribution. Empty leaves the choice
// to libcurl.
std::string systemCertificateFile(const CurlLibrary& curl) {
  const curl_version_info_data* const version = curl.versionInfo(CURLVERSION_NOW);
  const bool knowsFile = version->age >= CURLVERSION_SEVENTH && version->cainfo != nullptr;
  const char* const candidates[] = {
      knowsFile ? version->cainfo : "", "/etc/ssl/certs/ca-certificates.crt",
      "/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"};
  const auto* const found =
      std::find_if(std::begin(candidates), std::end(candidates),
                   [](const char* path) { return ::access(path, R_OK) == 0; });
  return found == std::end(candidates) ? std::string() : *found;
}

// Signals are for the host's threads. A write to a connection that the peer has closed would raise
// SIGPIPE on this one.
void blockSignals() {
  sigset_t all;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

int millisecondsUntil(TimePoint time) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(time - CurlSessionTransfer::Clock::now())
          .count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

}  // namespace

CurlSessionLoop::CurlSessionLoop(const CurlLibrary& curl, const URLSessionOptions& options,
                                 Executor& callbackQueue)
    : curl_(curl), options_(options), callbackQueue_(callbackQueue), multi_(curl.multiInit()) {
  if (options_.certificateAuthorityFile.empty()) {
    options_.certificateAuthorityFile = systemCertificateFile(curl_);
  }
}

CurlSessionLoop::~CurlSessionLoop() {
  if (thread_.joinable()) {
    {
      MutexLock lock(mutex_);
      isStopping_ = true;
    }
    wake();
    thread_.join();
  }
  if (multi_ != nullptr) curl_.multiCleanup(multi_);
}

std::string CurlSessionLoop::startThread() {
  // Out of file descriptors, libcurl makes a handle that nothing can wake.
  if (multi_ == nullptr || curl_.multiWakeup(multi_) != CURLM_OK) {
    return "libcurl cannot make a session";
  }
  curl_.multiSetopt(multi_, CURLMOPT_PIPELINING, long{CURLPIPE_MULTIPLEX});
  curl_.multiSetopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, kMaximumConnectionsPerHost);
  try {
    thread_ = std::thread(&CurlSessionLoop::run, this);
  } catch (const std::system_error& error) {
    return error.what();
  }
  return {};
}

void CurlSessionLoop::add(Ref<CurlSessionTask> task) {
  {
    MutexLock lock(mutex_);
    arrivals_.push_back(std::move(task));
  }
  wake();
}

void CurlSessionLoop::wake() {
  curl_.multiWakeup(multi_);
}

void CurlSessionLoop::run() {
  blockSignals();
  std::vector<Ref<CurlSessionTask>> arrivals;
  while (takeArrivals(arrivals)) {
    for (Ref<CurlSessionTask>& task : arrivals)
      launch(std::move(task));
    if (!perform() || !wait()) endAll(CURLE_FAILED_INIT);
  }
}

// False when the thread is to end.
bool CurlSessionLoop::takeArrivals(std::vector<Ref<CurlSessionTask>>& arrivals) {
  arrivals.clear();
  MutexLock lock(mutex_);
  arrivals.swap(arrivals_);
  return !isStopping_;
}

void CurlSessionLoop::launch(Ref<CurlSessionTask> task) {
  auto transfer = std::make_unique<CurlSessionTransfer>(curl_, task->request(), options_);
  CURL* const handle = transfer->handle();
  const bool isAdded = handle != nullptr && curl_.multiAddHandle(multi_, handle) == CURLM_OK;
  if (isAdded) {
    flights_.emplace(handle, Flight{std::move(task), std::move(transfer)});
    return;
  }
  const CURLcode result = handle == nullptr ? transfer->setupResult() : CURLE_FAILED_INIT;
  CurlSessionOutcome outcome = transfer->outcome(result);
  transfer.reset();  // it refers to the task's request
  CurlSessionTask::finish(std::move(task), std::move(outcome), callbackQueue_);
}

bool CurlSessionLoop::perform() {
  int running = 0;
  if (curl_.multiPerform(multi_, &running) != CURLM_OK) return false;
  endFinished();
  endCancelledAndOverdue();
  return true;
}

void CurlSessionLoop::endFinished() {
  int left = 0;
  while (const CURLMsg* const message = curl_.multiInfoRead(multi_, &left)) {
    // Ending the flight frees the message.
    const CURLcode result = message->data.result;
    const auto flight = flights_.find(message->easy_handle);
    if (flight != flights_.end()) end(flight, result);
  }
}

void CurlSessionLoop::endCancelledAndOverdue() {
  const TimePoint now = CurlSessionTransfer::Clock::now();
  for (auto flight = flights_.begin(); flight != flights_.end();) {
    const Flight& current = flight->second;
    const bool isOver = current.task->isCanceling() || current.transfer->deadline() <= now;
    flight = isOver ? end(flight, CURLE_OPERATION_TIMEDOUT) : std::next(flight);
  }
}

void CurlSessionLoop::endAll(CURLcode result) {
  for (auto flight = flights_.begin(); flight != flights_.end();)
    flight = end(flight, result);
}

// A cancelled task reports its cancellation whatever the result is.
CurlSessionLoop::Flights::iterator CurlSessionLoop::end(Flights::iterator flight, CURLcode result) {
  Flight ended = std::move(flight->second);
  curl_.multiRemoveHandle(multi_, flight->first);
  const auto next = flights_.erase(flight);
  CurlSessionOutcome outcome = ended.transfer->outcome(result);
  ended.transfer.reset();  // it refers to the task's request
  CurlSessionTask::finish(std::move(ended.task), std::move(outcome), callbackQueue_);
  return next;
}

// Sleeps until a socket is ready, a deadline has come, or somebody calls wake().
bool CurlSessionLoop::wait() {
  TimePoint next = TimePoint::max();
  for (const auto& [handle, flight] : flights_)
    next = std::min(next, flight.transfer->deadline());
  const int timeout = flights_.empty() ? INT_MAX : millisecondsUntil(next);
  return curl_.multiPoll(multi_, nullptr, 0, timeout, nullptr) == CURLM_OK;
}

}  // namespace qvr
