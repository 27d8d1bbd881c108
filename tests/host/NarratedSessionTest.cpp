// A session and a keychain that tell what goes through them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/NarratedKeychain.h"
#include "host/NarratedSession.h"
#include "tests/host/CommandTest.h"
#include "tests/host/ScopedDeadline.h"
#include "tests/support/FakeSession.h"

namespace host_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class NarratedSessionTest : public testing::Test {
 protected:
  NarratedSessionTest() {
    request.HTTPMethod = "POST";
    request.addValue("Bearer header-of-the-request", "Authorization");
    request.HTTPBody = support::bytes(
        "grant_type=refresh_token&client_id=example&refresh_token=token%2Fof%2Fthe+request");
  }

  // Makes the request, has it answered, and returns the steps.
  std::string steps(const std::function<void(support::FakeTask&)>& answer) {
    return collect([&] {
             const ScopedSteps shown;
             task = host::narratedIfShown(inner)->dataTask(
                 request, [this](auto data, auto* response, auto error) {
                   EXPECT_EQ(response != nullptr, data.has_value());
                   EXPECT_EQ(error == nullptr, data.has_value());
                   ++handled;
                 });
             task->resume();
             answer(inner->last());
             while (queue->runOne())
               continue;
             return 0;
           })
        .error;
  }

  qvr::URLRequest request{*qvr::URL::URLWithString("https://token.test:8443/token?x=query-value")};
  const qvr::Ref<support::ManualQueue> queue = qvr::makeRef<support::ManualQueue>("callbacks");
  const qvr::Ref<support::FakeSession> inner = qvr::makeRef<support::FakeSession>(queue);
  qvr::Ref<qvr::URLSessionDataTask> task;
  int handled = 0;
};

TEST_F(NarratedSessionTest, TellsTheRequestAndTheAnswer) {
  const std::string told = steps([](support::FakeTask& sent) {
    sent.answer(200, R"({"access_token":"token-of-the-answer","expires_in":60})");
  });
  EXPECT_THAT(told, MatchesRegex("qvr-oauth2: \\[[0-9.]+\\] request 1: POST "
                                 "https://token\\.test:8443/token\\?\\(x=\\{length = 11\\}\\) with "
                                 "grant_type=refresh_token, client_id=example, "
                                 "refresh_token=\\{length = 20\\}\n"
                                 "qvr-oauth2: \\[[0-9.]+\\] request 1: after [0-9]+ ms status 200, "
                                 "54 bytes: \\{access_token: \\{length = 19\\}, "
                                 "expires_in: 60\\}\n"));
  EXPECT_EQ(handled, 1);
}

TEST_F(NarratedSessionTest, ShowsNothingThatIsSecretInAnyEncoding) {
  const std::string told = steps([](support::FakeTask& sent) {
    sent.answer(400, R"({"error":"invalid_grant","error_description":"What is )"
                     R"(token%2Fof%2Fthe%20request, or token/of/the request?"})");
  });
  EXPECT_THAT(told, AllOf(HasSubstr("status 400"), HasSubstr("error: invalid_grant"),
                          HasSubstr("error_description: {length = "), Not(HasSubstr("the%20")),
                          Not(HasSubstr("of/the")), Not(HasSubstr("%2F")),
                          Not(HasSubstr("query-value")), Not(HasSubstr("header-of"))));
}

TEST_F(NarratedSessionTest, ShowsNoBodyThatIsNoObject) {
  const std::string told =
      steps([](support::FakeTask& sent) { sent.answer(503, "<p>Busy, token/of/body</p>"); });
  EXPECT_THAT(told,
              AllOf(HasSubstr("status 503, 26 bytes: not a JSON object"), Not(HasSubstr("Busy"))));
}

TEST_F(NarratedSessionTest, TellsATransportErrorByDomainAndCode) {
  const std::string told =
      steps([](support::FakeTask& sent) { sent.fail(qvr::NSURLErrorTimedOut); });
  EXPECT_THAT(told, HasSubstr(" ms no answer: NSURLErrorDomain -1001\n"));
  EXPECT_EQ(handled, 1);
}

TEST_F(NarratedSessionTest, TaskThatIsCancelledEndsTheOneBehindIt) {
  const std::string told = steps([this](support::FakeTask&) {
    EXPECT_EQ(task->state(), qvr::URLSessionDataTask::State::kRunning);
    task->resume();
    task->cancel();
  });
  EXPECT_THAT(told, HasSubstr("no answer: NSURLErrorDomain -999\n"));
  EXPECT_EQ(task->state(), inner->last().state());
  EXPECT_EQ(handled, 1);
}

TEST_F(NarratedSessionTest, RequestsAreNumbered) {
  const std::string told = collect([&] {
                             const ScopedSteps shown;
                             const auto session = host::narratedIfShown(inner);
                             for (int i = 0; i < 2; ++i)
                               session->dataTask(request, [](auto, auto*, auto) {})->resume();
                             return 0;
                           }).error;
  EXPECT_THAT(told, AllOf(HasSubstr("request 1: POST"), HasSubstr("request 2: POST")));
  for (const auto& each : inner->tasks())
    each->answer(200, "");
  while (queue->runOne())
    continue;
}

TEST_F(NarratedSessionTest, IsNotThereWhenNoStepsAreShown) {
  EXPECT_EQ(host::narratedIfShown(inner).get(), inner.get());
}

// The Retry-After header is told by the status line of a real answer; the fake has no headers.
class SessionWithHeaders final : public qvr::URLSession {
 public:
  explicit SessionWithHeaders(qvr::HTTPHeaders headers) : headers_(std::move(headers)) {}

  qvr::Ref<qvr::URLSessionDataTask> dataTask(
      qvr::URLRequest, qvr::DataTaskCompletionHandler completionHandler) override {
    class Task final : public qvr::URLSessionDataTask {
     public:
      Task(qvr::HTTPHeaders headers, qvr::DataTaskCompletionHandler handler)
          : headers_(std::move(headers)), handler_(std::move(handler)) {}
      void resume() override { std::exchange(handler_, nullptr)(qvr::Data(), &answer(), nullptr); }
      void cancel() override {}
      State state() const override { return State::kCompleted; }
      std::optional<std::int64_t> countOfBytesReceived() const override { return 17; }

     private:
      const qvr::HTTPURLResponse& answer() {
        response_.statusCode = 429;
        response_.headers = headers_;
        return response_;
      }
      const qvr::HTTPHeaders headers_;
      qvr::HTTPURLResponse response_;
      qvr::DataTaskCompletionHandler handler_;
    };
    return qvr::makeRef<Task>(headers_, std::move(completionHandler));
  }

 private:
  const qvr::HTTPHeaders headers_;
};

TEST_F(NarratedSessionTest, TellsWhenToTryAgainAndNoOtherHeader) {
  const auto session = qvr::makeRef<SessionWithHeaders>(
      qvr::HTTPHeaders{{"Set-Cookie", "value-of-a-cookie"}, {"retry-after", "120"}});
  const std::string told = collect([&] {
                             const ScopedSteps shown;
                             task = host::narratedIfShown(qvr::Ref<qvr::URLSession>(session))
                                        ->dataTask(request, [](auto, auto*, auto) {});
                             task->resume();
                             return 0;
                           }).error;
  EXPECT_THAT(told, AllOf(HasSubstr("status 429, Retry-After 120, 0 bytes: empty"),
                          Not(HasSubstr("cookie"))));
  EXPECT_EQ(task->countOfBytesReceived(), 17);
}

class NarratedKeychainTest : public testing::Test {
 protected:
  // The steps of an operation on the keychain, and whether it answered the status.
  std::string steps(const std::function<std::int32_t(qvr::KeychainItems&)>& operation,
                    std::int32_t expected) {
    return collect([&] {
             const ScopedSteps shown;
             EXPECT_EQ(operation(*host::narratedIfShown(qvr::Ref<qvr::KeychainItems>(inner))),
                       expected);
             return 0;
           })
        .error;
  }

  const qvr::KeychainQuery item = {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
                                   {std::string(qvr::kSecAttrService), "service"},
                                   {std::string(qvr::kSecAttrAccount), "user@example.org"}};
  const qvr::Ref<support::FakeKeychain> inner = qvr::makeRef<support::FakeKeychain>();
};

TEST_F(NarratedKeychainTest, TellsWhatIsReadByItsSize) {
  inner->put("service", "user@example.org", support::bytes("data-of-item"));
  auto query = item;
  query.emplace(qvr::kSecReturnData, true);
  qvr::Data data;
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.copyMatching(query, &data); },
                    qvr::errSecSuccess),
              AllOf(HasSubstr("] keychain: read the item of user@example.org under service\n"),
                    HasSubstr("under service: 12 bytes after "), Not(HasSubstr("data-of-item"))));
  EXPECT_EQ(data, support::bytes("data-of-item"));
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.copyMatching(item, nullptr); },
                    qvr::errSecSuccess),
              HasSubstr("look for the item of user@example.org under service: it is there"));
}

TEST_F(NarratedKeychainTest, TellsWhatIsWrittenAndRemoved) {
  auto attributes = item;
  attributes.emplace(qvr::kSecValueData, support::bytes("data-of-item"));
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.add(attributes); }, qvr::errSecSuccess),
              AllOf(HasSubstr("add the item of user@example.org under service (12 bytes): done"),
                    Not(HasSubstr("data-of-item"))));
  const qvr::KeychainQuery other = {
      {std::string(qvr::kSecValueData), support::bytes("more-of-it-now")}};
  EXPECT_THAT(
      steps([&](auto& keychain) { return keychain.update(item, other); }, qvr::errSecSuccess),
      AllOf(HasSubstr("replace the item of user@example.org under service (14 bytes): "),
            Not(HasSubstr("more-of-it"))));
  std::vector<qvr::KeychainItemName> names;
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.list(&names); }, qvr::errSecSuccess),
              HasSubstr("list the items: 1 after"));
  EXPECT_EQ(names.size(), 1U);
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.remove(item); }, qvr::errSecSuccess),
              HasSubstr("remove the item of user@example.org under service: done"));
}

TEST_F(NarratedKeychainTest, TellsAFailureByItsStatus) {
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.remove(item); }, qvr::errSecItemNotFound),
              HasSubstr("remove the item of user@example.org under service: there is none"));
  inner->failEvery("remove", qvr::errSecInteractionNotAllowed);
  EXPECT_THAT(steps([&](auto& keychain) { return keychain.remove(item); },
                    qvr::errSecInteractionNotAllowed),
              HasSubstr("under service: status -25308"));
}

TEST_F(NarratedKeychainTest, IsNotThereWhenNoStepsAreShown) {
  EXPECT_EQ(host::narratedIfShown(qvr::Ref<qvr::KeychainItems>(inner)).get(), inner.get());
}

}  // namespace
}  // namespace host_test
