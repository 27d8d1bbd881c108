#include "src/ports/CurlSessionLoop.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <iterator>
#include <utility>

#include "src/platform/URLErrors.h"

namespace qvr {
namespace {

using TimePoint = CurlSessionTransfer::Clock::time_point;

constexpr std::ptrdiff_t kMaximumConnectionsPerHost = 6;

// Kept open in all, whatever the number of requests; a burst to one host keeps its connections.
constexpr long kMaximumIdleConnections = 24;

std::string hostAndPort(const URL& url) {
  return url.host().value_or("") + ":" + std::to_string(url.port().value_or(0));
}

int millisecondsUntil(TimePoint time) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(time - CurlSessionTransfer::Clock::now())
          .count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

}  // namespace

CurlSessionLoop::CurlSessionLoop(const CurlLibrary& curl, const URLSessionOptions& options)
    : curl_(curl),
      options_(options),
      multi_(curl.multiInit()),
      looksNamesUpElsewhere_(
          (curl.versionInfo(CURLVERSION_NOW)->features & CURL_VERSION_ASYNCHDNS) != 0),
      handles_(curl, options) {
  if (multi_ == nullptr) return;
  curl_.multiSetopt(multi_, CURLMOPT_PIPELINING, long{CURLPIPE_MULTIPLEX});
  curl_.multiSetopt(multi_, CURLMOPT_MAXCONNECTS, kMaximumIdleConnections);
}

CurlSessionLoop::~CurlSessionLoop() {
  if (multi_ != nullptr) curl_.multiCleanup(multi_);
}

// Out of file descriptors, libcurl makes a handle that nothing can wake.
std::string CurlSessionLoop::problem() const {
  const bool isUsable = multi_ != nullptr && curl_.multiWakeup(multi_) == CURLM_OK;
  return isUsable ? "" : "libcurl cannot make a session";
}

void CurlSessionLoop::add(Ref<CurlSessionTask> task) {
  std::string host = hostAndPort(task->request().url);
  waiting_.push_back({std::move(task), std::move(host),
                      CurlSessionTransfer::deadlineAfter(options_.requestTimeoutSeconds)});
}

void CurlSessionLoop::wake() {
  curl_.multiWakeup(multi_);
}

std::vector<Ref<CurlSessionTask>> CurlSessionLoop::advance() {
  launchWaiting();
  const std::size_t count = flights_.size();
  const bool isWell = perform();
  const bool hasProgressed = endFinished();
  endCancelledAndOverdue();
  if (!isWell) endAll(CURLE_FAILED_INIT);
  // libcurl 7.88 may forget, when several transfers move in one pass, that one of them has more
  // to read: only a pass in which nothing moved is then a reason to sleep.
  mayHaveMore_ = (hasProgressed && count > 1) || flights_.size() < count;
  return std::exchange(finished_, {});
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
  if (waiting_.empty()) return;
  const TimePoint now = CurlSessionTransfer::Clock::now();
  std::vector<Waiting> stillWaiting;
  for (Waiting& waiting : waiting_) {
    if (waiting.task->isCanceling() || waiting.deadline <= now) {
      CurlSessionOutcome overdue;
      overdue.error = makeURLError(NSURLErrorTimedOut, waiting.task->request().url);
      finish(std::move(waiting.task), std::move(overdue));
    } else if (isFull(waiting.host)) {
      stillWaiting.push_back(std::move(waiting));
    } else {
      launch(std::move(waiting));
    }
  }
  waiting_ = std::move(stillWaiting);
}

bool CurlSessionLoop::isFull(const std::string& host) const {
  const auto isSame = [&](const Flights::value_type& entry) { return entry.second.host == host; };
  return std::count_if(flights_.begin(), flights_.end(), isSame) >= kMaximumConnectionsPerHost;
}

void CurlSessionLoop::launch(Waiting waiting) {
  auto transfer = std::make_unique<CurlSessionTransfer>(
      curl_, handles_, waiting.task->request(), options_.idleTimeoutSeconds, waiting.deadline,
      waiting.task->byteCount());
  CURL* const handle = transfer->handle();
  if (handle != nullptr && curl_.multiAddHandle(multi_, handle) == CURLM_OK) {
    flights_.emplace(handle,
                     Flight{std::move(waiting.task), std::move(waiting.host), std::move(transfer)});
    return;
  }
  const CURLcode result = handle == nullptr ? transfer->setupResult() : CURLE_FAILED_INIT;
  CurlSessionOutcome outcome = transfer->outcome(result);
  transfer.reset();  // it refers to the task
  finish(std::move(waiting.task), std::move(outcome));
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
  finish(std::move(ended.task), std::move(outcome));
  return next;
}

void CurlSessionLoop::finish(Ref<CurlSessionTask> task, CurlSessionOutcome outcome) {
  task->setOutcome(std::move(outcome));
  finished_.push_back(std::move(task));
}

void CurlSessionLoop::wait() {
  if (mayHaveMore_) return;
  TimePoint next = TimePoint::max();
  for (const auto& [handle, flight] : flights_)
    next = std::min(next, flight.transfer->deadline());
  for (const Waiting& waiting : waiting_)
    next = std::min(next, waiting.deadline);
  const int timeout = next == TimePoint::max() ? INT_MAX : millisecondsUntil(next);
  if (curl_.multiPoll(multi_, nullptr, 0, timeout, nullptr) != CURLM_OK) endAll(CURLE_FAILED_INIT);
}

}  // namespace qvr
