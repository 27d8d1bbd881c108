// The fixture of tests that send requests through the libcurl session to a server on loopback.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Ports.h"
#include "tests/support/ErrorMatchers.h"
#include "tests/support/LoopbackServer.h"

namespace support {

// What a handler was told.
struct Reply {
  int calls = 0;
  std::optional<qvr::Data> data;
  std::optional<qvr::HTTPURLResponse> response;
  qvr::ErrorPtr error;

  std::string body() const;
};

// Makes handlers that record what they are told, and waits for it. The handlers may outlive it.
class ReplyWaiter {
 public:
  qvr::DataTaskCompletionHandler handler() const;

  // The reply; fails the test and is empty when there is none by the deadline.
  Reply wait(double seconds = 20) const;

  // What there is now.
  Reply now() const;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    Reply reply;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

// Something that happens once, and can be waited for. It may go as soon as a wait is over.
class Event {
 public:
  void happen() const;
  bool wait(double seconds = 20) const;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool hasHappened = false;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

qvr::URLRequest requestFor(const std::string& url);

// userInfo of a transport error.
UserInfo failureOf(const std::string& url, std::string_view description);

// Seconds that a piece of work takes.
double secondsOf(const std::function<void()>& work);

class CurlSessionTest : public testing::Test {
 protected:
  CurlSessionTest();

  // Sends a request and waits for its reply.
  Reply send(qvr::URLRequest request);
  Reply get(const std::string& url) { return send(requestFor(url)); }

  // Sends a request to the server, which answers it so.
  Reply getAnswered(Behaviour behaviour);

  // The code of NSURLErrorDomain that the reply fails with; 0 when it does not fail.
  static std::int64_t codeOf(const Reply& reply);

  LoopbackServer server;
  qvr::URLSessionOptions options;
  qvr::Ref<qvr::URLSession> session = qvr::makeURLSession();
};

}  // namespace support
