// The authorization servers that the end-to-end tests sign in to: real ones, on loopback TLS ports.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

class Counterpart {
 public:
  // Starts the servers and waits until they are ready.
  explicit Counterpart(std::string folder);

  // What ready.json says at "member" or "provider.member".
  std::string ready(const std::string& member) const;
  std::string ready(const std::string& provider, const std::string& member) const;

  std::string certificateAuthority() const { return ready("ca"); }

  // How often the provider ("google", "microsoft") got a kind of request since the last reset:
  // "authorize", "codeExchanges", "refreshes", "revocations", "failures", "elsewhere".
  std::int64_t count(const std::string& provider, const std::string& kind);

  // Asks the control port, or sends it a JSON body, and answers what comes back.
  qvr::Value get(const std::string& path) { return send(path, nullptr); }
  qvr::Value post(const std::string& path, const std::string& json);

  // Makes the next requests to an endpoint go wrong.
  void fault(const std::string& provider, const std::string& endpoint, const std::string& kind,
             const std::string& furtherMembers = "");

  // Holds the next request to the token endpoint: before the servers have computed the answer, or
  // after it, when a refresh token has been rotated.
  enum class Moment { kBeforeTheAnswer, kAfterTheAnswer };
  void hold(const std::string& provider, Moment moment, const std::string& endpoint = "token");

  // Waits until so many are held, and lets through what is held.
  void waitUntilHeld(const std::string& provider, int count = 1);
  void release(const std::string& provider);

  void shutDown();

  void setAccessTokenSeconds(const std::string& provider, int seconds);
  void useCertificate(const std::string& provider, const std::string& name);

  // True when the provider would still take the token.
  bool isActive(const std::string& provider, const std::string& token);

 private:
  qvr::Value send(const std::string& path, const std::string* json);

  const std::string folder_;
  std::unique_ptr<support::ChildProcess> process_;
  qvr::Value ready_;
  qvr::Ref<qvr::URLSession> control_ = qvr::makeURLSession();
};

// The scripted browser: walks the login and consent pages at `url` as the user would, and prints
// the redirect it ends with.
std::unique_ptr<support::ChildProcess> startBrowser(const std::string& certificateAuthority,
                                                    const std::string& user, const std::string& url,
                                                    bool denies = false);

}  // namespace e2e
