// `doctor` and the servers: whether each is reached over TLS that can be trusted, and what time it
// has.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "host/Configuration.h"
#include "host/DoctorCheck.h"
#include "host/Wait.h"

namespace host {

// How long a server has to answer, and how much later at most the session reports that it did not.
inline constexpr double kEndpointTimeoutSeconds = 5;
inline constexpr double kEndpointMarginSeconds = 1;

// What came of a request to a server.
struct EndpointAnswer {
  std::string host;
  std::int64_t error = 0;                 // of NSURLErrorDomain; 0 when there was an HTTP answer
  std::optional<qvr::Date> serverTime{};  // by its Date header
  qvr::Date localTime{};                  // when the answer came
};
using EndpointAnswers = std::vector<EndpointAnswer>;

// The servers that the configuration's registrations use, each once.
std::vector<std::string> endpointHosts(const Configuration& configuration);

// A request to each server, all at the same time. They carry nothing: any answer will do.
class EndpointRequests {
 public:
  EndpointRequests() = default;  // to no server

  // Sends them.
  EndpointRequests(const std::vector<std::string>& hosts, qvr::Ref<qvr::URLSession> session,
                   const qvr::Clock& clock);

  // The answers in the order of the hosts. A request that is silent for `seconds` from now on has
  // timed out.
  EndpointAnswers wait(double seconds = kEndpointTimeoutSeconds + kEndpointMarginSeconds) const;

 private:
  struct Request {
    std::string host;
    Outcome<EndpointAnswer> outcome;
    qvr::Ref<qvr::URLSessionDataTask> task;
  };
  qvr::Ref<qvr::URLSession> session_;
  std::vector<Request> requests_;
};

// A check for each answer.
Checks checkEndpoints(const EndpointAnswers& answers);

// Compares this computer's clock with the servers'. Of several servers the one that agrees best
// counts: the others' own clocks may be wrong.
Check checkClock(const EndpointAnswers& answers);

}  // namespace host
