#include "tests/ports/CurlSessionFixture.h"

#include <cstdlib>
#include <utility>

namespace support {

std::string Reply::body() const {
  return data ? std::string(data->begin(), data->end()) : std::string("(no data)");
}

qvr::DataTaskCompletionHandler ReplyWaiter::handler() const {
  return [state = state_](std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
                          qvr::ErrorPtr error) {
    const std::lock_guard lock(state->mutex);
    ++state->reply.calls;
    state->reply.data = std::move(data);
    if (response != nullptr) state->reply.response = *response;
    state->reply.error = std::move(error);
    state->changed.notify_all();
  };
}

Reply ReplyWaiter::wait(double seconds) const {
  std::unique_lock lock(state_->mutex);
  const bool hasCome = state_->changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                                [&] { return state_->reply.calls > 0; });
  EXPECT_TRUE(hasCome) << "the handler was not called";
  return state_->reply;
}

Reply ReplyWaiter::now() const {
  const std::lock_guard lock(state_->mutex);
  return state_->reply;
}

void Event::happen() const {
  const std::shared_ptr<State> state = state_;
  const std::lock_guard lock(state->mutex);
  state->hasHappened = true;
  state->changed.notify_all();
}

bool Event::wait(double seconds) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                  [&] { return state_->hasHappened; });
}

qvr::URLRequest requestFor(const std::string& url) {
  return qvr::URLRequest(qvr::URL::URLWithString(url).value());
}

UserInfo failureOf(const std::string& url, std::string_view description) {
  return {{std::string(qvr::NSLocalizedDescriptionKey), description},
          {std::string(qvr::NSURLErrorFailingURLStringErrorKey), url},
          {std::string(qvr::NSURLErrorFailingURLErrorKey), qvr::URL::URLWithString(url).value()}};
}

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A proxy that the developer's environment names must not stand before the loopback server.
CurlSessionTest::CurlSessionTest() {
  ::setenv("no_proxy", "*", 1);
}

Reply CurlSessionTest::send(qvr::URLRequest request) {
  const ReplyWaiter waiter;
  session->dataTask(std::move(request), waiter.handler())->resume();
  return waiter.wait();
}

Reply CurlSessionTest::getAnswered(Behaviour behaviour) {
  server.enqueue(std::move(behaviour));
  return get(server.url());
}

std::int64_t CurlSessionTest::codeOf(const Reply& reply) {
  if (!reply.error) return 0;
  EXPECT_EQ(reply.error->domain(), qvr::NSURLErrorDomain);
  return reply.error->code();
}

}  // namespace support
