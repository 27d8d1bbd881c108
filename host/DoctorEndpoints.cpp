#include "host/DoctorEndpoints.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/HTTPDate.h"
#include "host/HeaderField.h"

namespace host {
namespace {

using State = Check::State;

constexpr const char* kUnreachable =
    "Connect to the network. If it is connected, check the proxy ($https_proxy), and the hosts "
    "under [endpoints] in the configuration.";
constexpr const char* kIntercepted =
    "Check the host under [endpoints] in the configuration, and that no proxy or firewall "
    "intercepts the connection.";
constexpr const char* kWrongTime =
    "Set this computer's clock: `timedatectl set-ntp true`. If it is right, the server needs "
    "another certificate.";

// What an error code says, and what mends it. Only an answer tells that something is wrong with a
// server: without one there may just be no network.
struct Trouble {
  std::int64_t code;
  State state;
  const char* sentence;
  const char* remedy;
};

constexpr Trouble kTroubles[] = {
    {qvr::NSURLErrorTimedOut, State::kWarning, "it did not answer in time.", kUnreachable},
    {qvr::NSURLErrorCannotFindHost, State::kWarning, "its name could not be found.", kUnreachable},
    {qvr::NSURLErrorCannotConnectToHost, State::kWarning, "no connection could be made.",
     kUnreachable},
    {qvr::NSURLErrorNetworkConnectionLost, State::kWarning, "the connection was lost.",
     kUnreachable},
    {qvr::NSURLErrorNotConnectedToInternet, State::kWarning, "there is no network.", kUnreachable},
    {qvr::NSURLErrorCannotParseResponse, State::kProblem, "What answers there does not speak HTTP.",
     kIntercepted},
    {qvr::NSURLErrorSecureConnectionFailed, State::kProblem,
     "No secure connection could be made: what answers there speaks no TLS, or only an old version "
     "of it.",
     "Check the host, and that certificate_authority_file is a PEM file if there is one, both "
     "under "
     "[endpoints] in the configuration, and that no proxy or firewall intercepts the connection."},
    {qvr::NSURLErrorServerCertificateHasBadDate, State::kProblem,
     "The server's certificate has expired by this computer's clock.", kWrongTime},
    {qvr::NSURLErrorServerCertificateNotYetValid, State::kProblem,
     "The server's certificate is not valid yet by this computer's clock.", kWrongTime},
    {qvr::NSURLErrorServerCertificateUntrusted, State::kProblem,
     "The server's certificate is not trusted, or is for another host.",
     "If the server, or the proxy that your network puts before it, has a certificate authority of "
     "its own, name the authority's PEM file as certificate_authority_file under [endpoints] in "
     "the configuration. Otherwise somebody may be intercepting the connection."},
    {qvr::NSURLErrorClientCertificateRequired, State::kProblem,
     "The server wants a client certificate, which qvr-oauth2 cannot give.",
     "Use a server that wants none: check the hosts under [endpoints] in the configuration."},
};

// The server was reached; what it answers does not matter.
bool isAnswer(std::int64_t error) {
  return error == 0 || error == qvr::NSURLErrorCannotDecodeRawData ||
         error == qvr::NSURLErrorDataLengthExceedsMaximum;
}

Check checkEndpoint(const EndpointAnswer& answer) {
  const std::string name = "TLS to " + answer.host;
  if (isAnswer(answer.error))
    return Check::ok(name, "The server answers over a secure connection.");
  const auto* const trouble =
      std::find_if(std::begin(kTroubles), std::end(kTroubles),
                   [&answer](const Trouble& each) { return each.code == answer.error; });
  if (trouble == std::end(kTroubles)) {
    return Check::unchecked(
        name, "the request failed (NSURLErrorDomain " + std::to_string(answer.error) + ").",
        kUnreachable);
  }
  return trouble->state == State::kWarning
             ? Check::unchecked(name, trouble->sentence, trouble->remedy)
             : Check::problem(name, trouble->sentence, trouble->remedy);
}

std::optional<qvr::Date> dateOf(const qvr::HTTPURLResponse& response) {
  return dateFromHTTP(headerField(response, "Date").value_or(""));
}

qvr::Ref<qvr::URLSessionDataTask> send(const std::string& host, qvr::URLSession& session,
                                       const qvr::Clock& clock,
                                       const Outcome<EndpointAnswer>& outcome) {
  const auto url = qvr::URL::URLWithString("https://" + host + "/");
  if (!url) {  // the configuration's own check lets no such host through
    outcome.deliver({host, qvr::NSURLErrorBadURL});
    return nullptr;
  }
  qvr::URLRequest request(*url);
  request.HTTPMethod = "HEAD";
  auto task = session.dataTask(
      request, [host, clock, outcome](const std::optional<qvr::Data>&,
                                      const qvr::HTTPURLResponse* response, qvr::ErrorPtr error) {
        EndpointAnswer answer{host, error ? error->code() : 0};
        if (response != nullptr) answer.serverTime = dateOf(*response);
        answer.localTime = clock();
        outcome.deliver(std::move(answer));
      });
  task->resume();
  return task;
}

}  // namespace

std::vector<std::string> endpointHosts(const Configuration& configuration) {
  std::vector<std::string> hosts;
  const auto add = [&hosts](const std::string& host) {
    if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) hosts.push_back(host);
  };
  if (!registrationProblem(configuration, QVROAuth2ProviderGoogle)) {
    add(configuration.endpoints.googleAuthorizationHost);
    add(configuration.endpoints.googleTokenHost);
  }
  if (!registrationProblem(configuration, QVROAuth2ProviderMicrosoft))
    add(configuration.endpoints.microsoftLoginHost);
  return hosts;
}

EndpointRequests::EndpointRequests(const std::vector<std::string>& hosts,
                                   qvr::Ref<qvr::URLSession> session, const qvr::Clock& clock)
    : session_(std::move(session)) {
  for (const std::string& host : hosts) {
    const Outcome<EndpointAnswer> outcome;
    requests_.push_back({host, outcome, send(host, *session_, clock, outcome)});
  }
}

EndpointAnswers EndpointRequests::wait(double seconds) const {
  using SteadyClock = std::chrono::steady_clock;
  const auto start = SteadyClock::now();
  EndpointAnswers answers;
  for (const Request& request : requests_) {
    const std::chrono::duration<double> past = SteadyClock::now() - start;
    auto answer = request.outcome.wait(std::max(0.0, seconds - past.count()));
    answers.push_back(answer.value_or(EndpointAnswer{request.host, qvr::NSURLErrorTimedOut}));
  }
  return answers;
}

Checks checkEndpoints(const EndpointAnswers& answers) {
  Checks checks;
  std::transform(answers.begin(), answers.end(), std::back_inserter(checks), checkEndpoint);
  return checks;
}

}  // namespace host
