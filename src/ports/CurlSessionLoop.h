// The requests of a libcurl session that are waiting or on their way, and libcurl's multi handle,
// which keeps connections and the parsed certificate store from one request to the next.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Ports.h"
#include "src/ports/CurlLibrary.h"
#include "src/ports/CurlSessionHandles.h"
#include "src/ports/CurlSessionTask.h"
#include "src/ports/CurlSessionTransfer.h"

namespace qvr {

// Thread rule: one thread at a time, whichever it is; wake() on any.
class CurlSessionLoop {
 public:
  CurlSessionLoop(const CurlLibrary& curl, const URLSessionOptions& options);
  ~CurlSessionLoop();
  CurlSessionLoop(const CurlSessionLoop&) = delete;
  CurlSessionLoop& operator=(const CurlSessionLoop&) = delete;

  // Why it cannot be used; empty when it can.
  std::string problem() const;

  // Takes a request whose time begins now. It is sent by advance().
  void add(Ref<CurlSessionTask> task);

  // True while advance() has something to do or to tell.
  bool isBusy() const { return !waiting_.empty() || !flights_.empty() || !finished_.empty(); }

  // False when advance() may wait for a name server: libcurl can be built so.
  bool looksNamesUpElsewhere() const { return looksNamesUpElsewhere_; }

  // Does what can be done without waiting. The tasks that have come to their end, with their
  // outcome.
  std::vector<Ref<CurlSessionTask>> advance();

  // Sleeps until there may be something to do: a socket is ready, a deadline has come, or somebody
  // called wake(), since the last time too.
  void wait();

  void wake();

 private:
  using TimePoint = CurlSessionTransfer::Clock::time_point;

  // A task that waits for its turn: a host gets so many connections and no more.
  struct Waiting {
    Ref<CurlSessionTask> task;
    std::string host;
    TimePoint deadline;  // of the whole request
  };
  struct Flight {
    Ref<CurlSessionTask> task;
    std::string host;
    std::unique_ptr<CurlSessionTransfer> transfer;
  };
  using Flights = std::map<CURL*, Flight>;

  bool perform();
  bool endFinished();
  void endCancelledAndOverdue();
  void launchWaiting();
  bool isFull(const std::string& host) const;
  void launch(Waiting waiting);
  void endAll(CURLcode result);
  Flights::iterator end(Flights::iterator flight, CURLcode result);
  void finish(Ref<CurlSessionTask> task, CurlSessionOutcome outcome);

  const CurlLibrary& curl_;
  const URLSessionOptions options_;
  CURLM* const multi_;
  const bool looksNamesUpElsewhere_;
  CurlSessionHandles handles_;
  Flights flights_;
  std::vector<Waiting> waiting_;  // oldest first
  std::vector<Ref<CurlSessionTask>> finished_;
  bool mayHaveMore_ = false;  // libcurl may have more to do than it says
};

}  // namespace qvr
