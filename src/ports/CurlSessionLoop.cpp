#include "src/ports/CurlSessionLoop.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <iterator>
#include <system_error>
#include <utility>

#include "src/platform/URLErrors.h"

namespace qvr {
namespace {

using TimePoint = CurlSessionTransfer::Clock::time_point;

constexpr std::ptrdiff_t kMaximumConnectionsPerHost = 6;

// Kept open in all, whatever the number of requests; a burst to one host keeps its connections.
constexpr long kMaximumIdleConnections = 24;

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

std::string hostAndPort(const URL& url) {
  return url.host().value_or("") + ":" + std::to_string(url.port().value_or(0));
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
  curl_.multiSetopt(multi_, CURLMOPT_MAXCONNECTS, kMaximumIdleConnections);
  try {
    thread_ = std::thread(&CurlSessionLoop::run, this);
  } catch (const std::system_error& error) {
    return error.what();
  }
  return {};
}

void CurlSessionLoop::add(Ref<CurlSessionTask> task) {
  std::string host = hostAndPort(task->request().url);
  const TimePoint deadline = CurlSessionTransfer::deadlineAfter(options_.requestTimeoutSeconds);
  {
    MutexLock lock(mutex_);
    arrivals_.push_back({std::move(task), std::move(host), deadline});
  }
  wake();
}

void CurlSessionLoop::wake() {
  curl_.multiWakeup(multi_);
}

void CurlSessionLoop::run() {
  ::pthread_setname_np(::pthread_self(), "qvr-https");
  blockSignals();
  while (takeArrivals()) {
    const bool isWell = perform();
    const bool hasProgressed = endFinished();
    endCancelledAndOverdue();
    launchWaiting();
    // libcurl 7.88 may forget, when several transfers move in one pass, that one of them has more
    // to read: only a pass in which nothing moved is a reason to sleep.
    if (!isWell || (!hasProgressed && !wait())) endAll(CURLE_FAILED_INIT);
  }
}

// False when the thread is to end.
bool CurlSessionLoop::takeArrivals() {
  MutexLock lock(mutex_);
  std::move(arrivals_.begin(), arrivals_.end(), std::back_inserter(waiting_));
  arrivals_.clear();
  return !isStopping_;
}

bool CurlSessionLoop::perform() {
  int running = 0;
  return curl_.multiPerform(multi_, &running) == CURLM_OK;
}

// True when a transfer ended or received or sent something.
bool CurlSessionLoop::endFinished() {
  bool hasProgressed = false;
  for (auto& [handle, flight] : flights_)
    hasProgressed |= flight.transfer->takeProgress();
  int left = 0;
  while (const CURLMsg* const message = curl_.multiInfoRead(multi_, &left)) {
    // Ending the flight frees the message.
    const CURLcode result = message->data.result;
    const auto flight = flights_.find(message->easy_handle);
    if (flight != flights_.end()) end(flight, result);
    hasProgressed = true;
  }
  return hasProgressed;
}

void CurlSessionLoop::endCancelledAndOverdue() {
  const TimePoint now = CurlSessionTransfer::Clock::now();
  for (auto flight = flights_.begin(); flight != flights_.end();) {
    const Flight& current = flight->second;
    const bool isOver = current.task->isCanceling() || current.transfer->deadline() <= now;
    flight = isOver ? end(flight, CURLE_OPERATION_TIMEDOUT) : std::next(flight);
  }
}

// libcurl has a limit of its own, but forgets requests that wait for it: version 7.88 wakes one for
// each that ends, and one that finds no connection yet takes the turn of another.
void CurlSessionLoop::launchWaiting() {
  const TimePoint now = CurlSessionTransfer::Clock::now();
  std::vector<Waiting> stillWaiting;
  for (Waiting& waiting : waiting_) {
    if (waiting.task->isCanceling() || waiting.deadline <= now) {
      CurlSessionOutcome overdue;
      overdue.error = makeURLError(NSURLErrorTimedOut, waiting.task->request().url);
      CurlSessionTask::finish(std::move(waiting.task), std::move(overdue), callbackQueue_);
    } else if (isBusy(waiting.host)) {
      stillWaiting.push_back(std::move(waiting));
    } else {
      launch(std::move(waiting));
    }
  }
  waiting_ = std::move(stillWaiting);
}

bool CurlSessionLoop::isBusy(const std::string& host) const {
  const auto isSame = [&](const Flights::value_type& entry) { return entry.second.host == host; };
  return std::count_if(flights_.begin(), flights_.end(), isSame) >= kMaximumConnectionsPerHost;
}

void CurlSessionLoop::launch(Waiting waiting) {
  auto transfer = std::make_unique<CurlSessionTransfer>(
      curl_, waiting.task->request(), options_, waiting.deadline, waiting.task->byteCount());
  CURL* const handle = transfer->handle();
  if (handle != nullptr && curl_.multiAddHandle(multi_, handle) == CURLM_OK) {
    flights_.emplace(handle,
                     Flight{std::move(waiting.task), std::move(waiting.host), std::move(transfer)});
    return;
  }
  const CURLcode result = handle == nullptr ? transfer->setupResult() : CURLE_FAILED_INIT;
  CurlSessionOutcome outcome = transfer->outcome(result);
  transfer.reset();  // it refers to the task
  CurlSessionTask::finish(std::move(waiting.task), std::move(outcome), callbackQueue_);
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
  ended.transfer.reset();  // it refers to the task
  CurlSessionTask::finish(std::move(ended.task), std::move(outcome), callbackQueue_);
  return next;
}

// Sleeps until a socket is ready, a deadline has come, or somebody calls wake().
bool CurlSessionLoop::wait() {
  TimePoint next = TimePoint::max();
  for (const auto& [handle, flight] : flights_)
    next = std::min(next, flight.transfer->deadline());
  for (const Waiting& waiting : waiting_)
    next = std::min(next, waiting.deadline);
  const int timeout = next == TimePoint::max() ? INT_MAX : millisecondsUntil(next);
  return curl_.multiPoll(multi_, nullptr, 0, timeout, nullptr) == CURLM_OK;
}

}  // namespace qvr
