// What the benchmarks of the token manager share: a host with accounts of 5 KB records, a server
// that answers after a delay, and a count of answers to wait for.
#ifndef QVR_BENCH_MANAGER_HOST_H
#define QVR_BENCH_MANAGER_HOST_H

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "src/platform/World.h"

namespace qvr::bench {

inline constexpr const char* kUser = "user@example.org";

// The texts of a record of about 5 KB.
std::string storedAccessToken();
std::string refreshedAccessToken();
std::string refreshToken();

// Prints the message and ends the benchmark: what would be measured is not the work.
[[noreturn]] void fail(const std::string& message);

// Waited for by one thread, while handlers on other threads count.
class Answers {
 public:
  explicit Answers(std::size_t expected) : left_(expected) { sem_init(&all_, 0, 0); }
  ~Answers() { sem_destroy(&all_); }
  Answers(const Answers&) = delete;
  Answers& operator=(const Answers&) = delete;

  void count() {
    if (left_.fetch_sub(1, std::memory_order_acq_rel) == 1) sem_post(&all_);
  }

  // Ends the benchmark after ten seconds.
  void wait();

 private:
  std::atomic<std::size_t> left_;
  sem_t all_;
};

// A token endpoint without a network: each request that was sent waits on a queue of its own, and
// is then answered.
class WaitingServer final : public URLSession {
 public:
  // `wait` is called with the time at which the request was sent.
  using Wait = std::function<void(std::chrono::steady_clock::time_point)>;
  WaitingServer(Wait wait, std::int64_t status, std::string body);

  Ref<URLSessionDataTask> dataTask(URLRequest request, DataTaskCompletionHandler handler) override;

  int requests() const { return requests_; }

 private:
  class Task;

  const Wait wait_;
  const std::int64_t status_;
  const std::string body_;
  const Ref<Executor> callbackQueue_ = makeSerialQueue("server");
  std::atomic<int> requests_{0};
};

// A wait that ends this long after the request was sent.
WaitingServer::Wait answersAfter(std::chrono::milliseconds delay);

// The answer to a refresh, with refreshedAccessToken().
std::string refreshBody();

// The library in use by a host, from a clean start.
class ManagerHost {
 public:
  ManagerHost(const Ref<KeychainItems>& items, const Ref<URLSession>& server);

  // Waits for what still runs: a request may be answered by the read of an earlier one.
  ~ManagerHost() { waitForKeychain(); }
  ManagerHost(const ManagerHost&) = delete;
  ManagerHost& operator=(const ManagerHost&) = delete;

  // Waits until all that was asked of the keychain so far has been delivered.
  void waitForKeychain() const;

  // Stores a record of 5 KB that ends `expiresIn` seconds from now.
  void store(const std::string& user, double expiresIn);

  // Calls answers.count() when the record is stored; ends the benchmark when it cannot be.
  void store(const std::string& user, const Ref<QVROAuth2Token>& token, Answers& answers);

  // Calls answers.count() when the token is there; ends the benchmark when it is another one.
  void request(const std::string& user, const std::string& expectedToken, Answers& answers);

  // The same for a request that has to fail with an error of the domain.
  void requestInVain(const std::string& user, std::string_view expectedDomain, Answers& answers);

 private:
  ScopedWorld world_;
  QVROAuth2TokenManager* manager_ = nullptr;
};

}  // namespace qvr::bench

#endif
