// A mail application, as far as signing in goes: it asks for a mailbox's access token, lets the
// user sign in with their browser when that is needed, and prints until when the token lasts.
#include <poll.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <future>
#include <iostream>
#include <stdexcept>

#include "QVROAuth2Client/QVROAuth2Client.h"

namespace {

constexpr char kApplication[] = "org.example.mailbox";  // its desktop entry has this name, too
constexpr std::chrono::minutes kPatience{5};

// Tells the library about this application: once, and before anything else of it is used.
void installHost() {
  QVROAuth2Host host;
  host.setBundleIdentifier(kApplication);
  host.setGoogleRegistration(std::getenv("MAILBOX_GOOGLE_CLIENT"),
                             std::getenv("MAILBOX_GOOGLE_SECRET"),
                             std::getenv("MAILBOX_GOOGLE_SCHEME"));
  host.setMicrosoftApplicationIdentifier(std::getenv("MAILBOX_MICROSOFT_CLIENT"));
  const char* const folder = std::getenv("MAILBOX_FOLDER");
  host.setKeychainItems(folder == nullptr
                            ? qvr::makeSecretServiceKeychain()
                            : qvr::makeEncryptedFileKeychain(
                                  {.directory = folder, .keyFile = std::string(folder) + "/key"}));
  const char* const server = std::getenv("MAILBOX_TEST_SERVER");
  const char* const authority = std::getenv("MAILBOX_TEST_AUTHORITY");
  if (server != nullptr && authority != nullptr) {
    host.setGoogleAuthorizationHost(server);
    host.setGoogleTokenHost(server);
    host.setMicrosoftLoginHost(server);
    host.setURLSession(qvr::makeURLSession({.certificateAuthorityFile = authority}));
  }
  host.install();
}

struct LibraryError : std::runtime_error {
  explicit LibraryError(qvr::ErrorPtr reason)
      : runtime_error(reason->localizedDescription().value_or(reason->description())),
        error(std::move(reason)) {}
  qvr::ErrorPtr error;
};

// Starts an operation. Its handler runs on any thread, and perhaps when nobody waits any more.
template <class Result, class Operation>
std::future<Result> start(Operation operation) {
  const auto promise = std::make_shared<std::promise<Result>>();
  operation([promise](Result result, qvr::ErrorPtr error) {
    if (!error) return promise->set_value(std::move(result));
    promise->set_exception(std::make_exception_ptr(LibraryError(error)));
  });
  return promise->get_future();
}

template <class Result, class Operation>
Result await(Operation operation) {
  auto answer = start<Result>(operation);
  if (answer.wait_for(kPatience) == std::future_status::ready) return answer.get();
  throw std::runtime_error("There was no answer in time.");
}

// Opens the browser, and waits for the redirect that the desktop hands over by the session bus.
// Who ends this with Ctrl-C leaves nothing behind: only the token is stored, at the very end.
std::string authorizationCode(QVROAuth2PublicClient& client) {
  std::string problem;
  const auto receiver = qvr::makeURLReceiver({.busName = kApplication}, &problem);
  if (!receiver) throw std::runtime_error(problem);
  if (!receiver->ownsName()) throw std::runtime_error("Another Mailbox is signing in.");
  std::cout << "Please sign in with your browser." << std::endl;
  auto answer = start<qvr::Ref<QVROAuth2AuthorizationResponse>>(
      [&](auto handler) { client.requestAuthorizationCode(handler); });
  const auto takeRedirect = [&](const std::string& url) {
    QVROAuth2PublicClient::handleGetURLEvent({url, std::nullopt, std::nullopt});
    return !client.isRequestingAuthorization();  // otherwise it belonged to another attempt
  };
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (client.isRequestingAuthorization()) {
    const std::chrono::duration<double, std::milli> left = end - std::chrono::steady_clock::now();
    pollfd arrival{receiver->fileDescriptor(), POLLIN, 0};
    if (left.count() < 1 || poll(&arrival, 1, static_cast<int>(left.count())) <= 0)
      throw std::runtime_error("Nobody signed in.");
    if (!receiver->process(takeRedirect)) throw std::runtime_error("The session bus is gone.");
  }
  return answer.get()->code().value_or("");  // the provider refuses an empty one
}

template <class Client>
void signIn(const std::string& user, const char* scope) {
  const auto client = Client::init();
  client->setLoginHint(user);
  client->setScope(scope);
  const std::string code = authorizationCode(*client);
  const auto response = await<qvr::Ref<QVROAuth2AccessTokenResponse>>([&](auto handler) {
    client->taskForRequestingAccessTokenWithAuthorizationCode(code, handler)->resume();
  });
  const auto token = QVROAuth2Token::initWithAccessToken(
      response->accessToken().text(), response->tokenType().text(),
      response->expiresIn().numberValue(), response->refreshToken().text(), std::nullopt,
      qvr::makeSystemClock()());
  if (!token->accessToken()) throw std::runtime_error("The provider sent no token.");
  await<bool>([&](auto handler) {
    const auto finish = [handler](qvr::ErrorPtr error) { handler(!error, error); };
    const auto manager = QVROAuth2TokenManager::sharedOAuth2TokenManager();
    manager->setTokenToKeychain(token, client->provider(), user, finish);
  });
}

// The stored token, refreshed when it is due. The user is asked only when there is none that works.
qvr::Ref<QVROAuth2Token> tokenFor(const std::string& provider, const std::string& user) {
  const auto request = [&](auto handler) {
    const auto manager = QVROAuth2TokenManager::sharedOAuth2TokenManager();
    manager->requestAccessTokenForProvider(provider, user, handler);
  };
  try {
    return await<qvr::Ref<QVROAuth2Token>>(request);
  } catch (const LibraryError& failure) {
    const QVROAuth2Advice advice = QVROAuth2AdviceForError(failure.error);
    if (advice != QVROAuth2Advice::kNothingStored && advice != QVROAuth2Advice::kSignInAgain) throw;
  }
  if (provider == QVROAuth2ProviderGoogle)
    signIn<QVRGoogleOAuth2PublicClient>(user, "https://mail.google.com/");
  else
    signIn<QVRMicrosoftOAuth2PublicClient>(
        user, "https://outlook.office.com/IMAP.AccessAsUser.All offline_access");
  return await<qvr::Ref<QVROAuth2Token>>(request);
}

}  // namespace

int main(int argc, char* argv[]) try {
  const std::string provider = argc == 3 ? argv[1] : "";
  if (provider != QVROAuth2ProviderGoogle && provider != QVROAuth2ProviderMicrosoft)
    throw std::runtime_error("usage: mailbox Google|Microsoft USER");
  installHost();
  const auto token = tokenFor(provider, argv[2]);
  const auto end = static_cast<std::time_t>(
      qvr::kSecondsFromUnixEpochToReferenceDate + token->expiresIn().value_or(0) +
      token->creationDate().value_or(qvr::Date()).timeIntervalSinceReferenceDate);
  std::cout << "Mailbox: " << argv[2] << "\nToken until: " << std::ctime(&end);
} catch (const std::exception& problem) {
  std::cerr << "mailbox: " << problem.what() << "\n";
  return 1;
}
