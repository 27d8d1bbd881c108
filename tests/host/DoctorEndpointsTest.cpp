// `doctor` and the servers: over real TLS on loopback where that matters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVROAuth2Client/platform/Ports.h"
#include "host/DoctorEndpoints.h"
#include "tests/host/AnsweringSession.h"
#include "tests/support/FakeSession.h"
#include "tests/support/TLSFront.h"

namespace host {
namespace {

using support::TLSFront;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using State = Check::State;

constexpr double kNow = 700000000;

qvr::Date standingClock() {
  return qvr::Date{kNow};
}

Configuration registeredAtBoth() {
  Configuration configuration;
  configuration.bundleIdentifier = "org.example.mail";
  configuration.google = {"example-client", "", "com.example.mail"};
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  configuration.endpoints = {"google.test", "token.google.test", "login.test", ""};
  return configuration;
}

TEST(DoctorEndpoints, AreThoseOfTheRegistrations) {
  Configuration configuration = registeredAtBoth();
  EXPECT_THAT(endpointHosts(configuration),
              ElementsAre("google.test", "token.google.test", "login.test"));
  configuration.endpoints.googleTokenHost = "google.test";
  EXPECT_THAT(endpointHosts(configuration), ElementsAre("google.test", "login.test"));
  configuration.google.customURIScheme.clear();
  EXPECT_THAT(endpointHosts(configuration), ElementsAre("login.test"));
  configuration.microsoft.applicationIdentifier.clear();
  EXPECT_THAT(endpointHosts(configuration), IsEmpty());
}

// What is said of a host after a transport error.
Check checkAfter(std::int64_t error) {
  const auto session = qvr::makeRef<host_test::AnsweringSession>();
  session->answerWith({0, "", error});
  return checkEndpoints(EndpointRequests({"login.test"}, session, standingClock).wait()).at(0);
}

TEST(DoctorEndpoints, AnsweringInWhateverWayAreFine) {
  for (const std::int64_t status : {200, 302, 404, 405, 503}) {
    const auto session = qvr::makeRef<host_test::AnsweringSession>();
    session->answerWith({status, "", 0});
    const Checks checks =
        checkEndpoints(EndpointRequests({"login.test"}, session, standingClock).wait());
    EXPECT_EQ(checks.at(0).state, State::kOk) << status;
    EXPECT_THAT(session->requests(), ElementsAre("HEAD https://login.test/ "));
  }
  EXPECT_EQ(checkAfter(qvr::NSURLErrorDataLengthExceedsMaximum).state, State::kOk);
}

TEST(DoctorEndpoints, OutOfReachCouldNotBeCheckedAndAreNoProblem) {
  for (const std::int64_t error :
       {qvr::NSURLErrorTimedOut, qvr::NSURLErrorCannotFindHost, qvr::NSURLErrorCannotConnectToHost,
        qvr::NSURLErrorNetworkConnectionLost, qvr::NSURLErrorNotConnectedToInternet,
        qvr::NSURLErrorUnknown}) {
    const Check check = checkAfter(error);
    EXPECT_EQ(check.state, State::kWarning) << error;
    EXPECT_EQ(check.name, "TLS to login.test");
    EXPECT_THAT(check.sentence, HasSubstr("Could not be checked")) << error;
    EXPECT_THAT(check.remedy, HasSubstr("network")) << error;
  }
}

TEST(DoctorEndpoints, ThatCannotBeTrustedAreAProblemWithAWayOut) {
  const struct {
    std::int64_t error;
    const char* sentence;
    const char* remedy;
  } cases[] = {
      {qvr::NSURLErrorSecureConnectionFailed, "No secure connection", "intercepts"},
      {qvr::NSURLErrorServerCertificateHasBadDate, "has expired", "timedatectl set-ntp true"},
      {qvr::NSURLErrorServerCertificateUntrusted, "not trusted", "certificate_authority_file"},
      {qvr::NSURLErrorServerCertificateNotYetValid, "not valid yet", "timedatectl set-ntp true"},
      {qvr::NSURLErrorClientCertificateRequired, "client certificate", "[endpoints]"},
      {qvr::NSURLErrorCannotParseResponse, "does not speak HTTP", "[endpoints]"},
  };
  for (const auto& each : cases) {
    const Check check = checkAfter(each.error);
    EXPECT_EQ(check.state, State::kProblem) << each.error;
    EXPECT_THAT(check.sentence, HasSubstr(each.sentence));
    EXPECT_THAT(check.remedy, HasSubstr(each.remedy));
  }
}

TEST(DoctorEndpoints, AreAskedAllAtTheSameTimeAndWaitedForOnce) {
  const auto queue = qvr::makeRef<support::ManualQueue>("answers");
  const auto session = qvr::makeRef<support::FakeSession>(queue);
  const EndpointRequests requests({"a.test", "b.test", "c.test"}, session, standingClock);
  ASSERT_EQ(session->tasks().size(), 3u) << "before anybody waits";
  session->tasks().at(1)->answer(200, "");
  EXPECT_TRUE(queue->runOne());
  const EndpointAnswers answers = requests.wait(0);
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[0].error, qvr::NSURLErrorTimedOut);
  EXPECT_EQ(answers[1].error, 0);
  EXPECT_EQ(answers[2].error, qvr::NSURLErrorTimedOut);
  EXPECT_EQ(answers[2].host, "c.test");
}

class DoctorTLS : public testing::Test {
 protected:
  static std::string hostOf(const TLSFront& front) {
    const std::string url = front.url();
    const std::size_t start = url.find("//") + 2;
    return url.substr(start, url.find('/', start) - start);
  }

  // Asks the server, trusting the authority in the file.
  EndpointAnswer ask(const TLSFront& front, const std::string& authorityFile) const {
    qvr::URLSessionOptions options;
    options.certificateAuthorityFile = authorityFile;
    return EndpointRequests({hostOf(front)}, qvr::makeURLSession(options), standingClock)
        .wait(30)
        .at(0);
  }

  Check checkOf(const support::Certificate& certificate) const {
    const TLSFront front(server, certificate);
    return checkEndpoints({ask(front, certificates.authorityFile())}).at(0);
  }

  support::TestCertificates certificates;
  support::LoopbackServer server;
};

TEST_F(DoctorTLS, WithTheRightAuthorityIsFine) {
  EXPECT_EQ(checkOf(certificates.valid()).state, State::kOk);
  EXPECT_EQ(server.requests().at(0).requestLine(), "HEAD / HTTP/1.1");
}

TEST_F(DoctorTLS, NamesWhatIsWrongWithACertificate) {
  EXPECT_THAT(checkOf(certificates.expired()).sentence, HasSubstr("has expired"));
  EXPECT_THAT(checkOf(certificates.notYetValid()).sentence, HasSubstr("not valid yet"));
  EXPECT_THAT(checkOf(certificates.selfSigned()).sentence, HasSubstr("not trusted"));
  EXPECT_THAT(checkOf(certificates.forAnotherHost()).sentence, HasSubstr("another host"));
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(DoctorTLS, WithAnotherAuthorityIsNotTrusted) {
  const TLSFront front(server, certificates.valid());
  const Check check =
      checkEndpoints({ask(front, support::TestCertificates().authorityFile())}).at(0);
  EXPECT_EQ(check.state, State::kProblem);
  EXPECT_THAT(check.remedy, HasSubstr("certificate_authority_file"));
}

TEST_F(DoctorTLS, TellsTheServersTimeFromItsDateHeader) {
  server.enqueue(support::answer(404, "", {{"date", "Thu, 08 Mar 2023 20:26:40 GMT"}}));
  server.enqueue(support::answer(404, "", {{"date", "Wed, 08 Mar 2023 20:26:40 GMT"}}));
  const TLSFront front(server, certificates.valid());
  EXPECT_FALSE(ask(front, certificates.authorityFile()).serverTime) << "no such day";
  const EndpointAnswer answer = ask(front, certificates.authorityFile());
  ASSERT_TRUE(answer.serverTime);
  EXPECT_EQ(answer.serverTime->timeIntervalSinceReferenceDate, kNow);
  EXPECT_EQ(answer.localTime, qvr::Date{kNow});
}

}  // namespace
}  // namespace host
