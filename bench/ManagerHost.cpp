#include "bench/ManagerHost.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace qvr::bench {

namespace {

constexpr std::time_t kDeadlineSeconds = 10;

}  // namespace

std::string storedAccessToken() {
  return std::string(2400, 's');
}

std::string refreshedAccessToken() {
  return std::string(2400, 'n');
}

std::string refreshToken() {
  return std::string(2400, 'r');
}

std::string refreshBody() {
  return R"({"access_token":")" + refreshedAccessToken() +
         R"(","token_type":"Bearer","expires_in":3600})";
}

void fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::_Exit(1);
}

void Answers::wait() {
  timespec deadline{};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += kDeadlineSeconds;
  while (sem_timedwait(&all_, &deadline) != 0) {
    if (errno == ETIMEDOUT) fail("not all requests were answered");
  }
}

class WaitingServer::Task final : public URLSessionDataTask {
 public:
  Task(WaitingServer* server, DataTaskCompletionHandler handler)
      : server_(Ref<WaitingServer>::retain(server)), handler_(std::move(handler)) {}

  void resume() override {
    ++server_->requests_;
    server_->callbackQueue_->async(
        [task = Ref<Task>::retain(this), sent = std::chrono::steady_clock::now()] {
          task->server_->wait_(sent);
          task->answer();
        });
  }
  void cancel() override {}
  State state() const override { return State::kRunning; }

 private:
  void answer() {
    HTTPURLResponse response;
    response.statusCode = server_->status_;
    std::exchange(handler_, nullptr)(Data(server_->body_.begin(), server_->body_.end()), &response,
                                     nullptr);
  }

  const Ref<WaitingServer> server_;
  DataTaskCompletionHandler handler_;
};

WaitingServer::WaitingServer(Wait wait, std::int64_t status, std::string body)
    : wait_(std::move(wait)), status_(status), body_(std::move(body)) {}

WaitingServer::Wait answersAfter(std::chrono::milliseconds delay) {
  return [delay](std::chrono::steady_clock::time_point sent) {
    std::this_thread::sleep_until(sent + delay);
  };
}

Ref<URLSessionDataTask> WaitingServer::dataTask(URLRequest, DataTaskCompletionHandler handler) {
  return makeRef<Task>(this, std::move(handler));
}

ManagerHost::ManagerHost(const Ref<KeychainItems>& items, const Ref<URLSession>& server) {
  QVROAuth2Host host;
  host.setBundleIdentifier("org.example.mail");
  host.setKeychainItems(items);
  host.setURLSession(server);
  host.install();
  manager_ = QVROAuth2TokenManager::sharedOAuth2TokenManager();
}

void ManagerHost::waitForKeychain() const {
  Answers delivered(1);
  QVROAuth2Keychain::queue()->async([&] {
    QVROAuth2Keychain::defaultOAuth2Keychain()->delegateQueue()->async([&] { delivered.count(); });
  });
  delivered.wait();
}

void ManagerHost::store(const std::string& user, double expiresIn) {
  Answers stored(1);
  store(user,
        QVROAuth2Token::initWithAccessToken(
            storedAccessToken(), "Bearer", expiresIn, refreshToken(),
            TextSet{"https://mail.google.com/", "openid", "email"}, World::current().now()),
        stored);
  stored.wait();
}

void ManagerHost::store(const std::string& user, const Ref<QVROAuth2Token>& token,
                        Answers& answers) {
  manager_->setTokenToKeychain(token, QVROAuth2ProviderGoogle, user, [&](const ErrorPtr& error) {
    if (error) fail(error->description());
    answers.count();
  });
}

void ManagerHost::request(const std::string& user, const std::string& expectedToken,
                          Answers& answers) {
  manager_->requestAccessTokenForProvider(
      QVROAuth2ProviderGoogle, user, [&](const Ref<QVROAuth2Token>& token, const ErrorPtr& error) {
        if (error) fail(error->description());
        if (token->accessToken() != expectedToken) fail("another token than expected");
        answers.count();
      });
}

void ManagerHost::requestInVain(const std::string& user, std::string_view expectedDomain,
                                Answers& answers) {
  manager_->requestAccessTokenForProvider(
      QVROAuth2ProviderGoogle, user,
      [&answers, expectedDomain](const Ref<QVROAuth2Token>&, const ErrorPtr& error) {
        if (!error || error->domain() != expectedDomain) fail("another failure than expected");
        answers.count();
      });
}

}  // namespace qvr::bench
