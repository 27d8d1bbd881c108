// A result that one thread waits for and another delivers.
#pragma once

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

namespace e2e {

// Waits for a future with a deadline that only a hang exceeds.
template <class T>
T await(std::future<T> future, std::chrono::seconds deadline = std::chrono::seconds(60)) {
  if (future.wait_for(deadline) != std::future_status::ready) {
    throw std::runtime_error("the awaited call did not come in time");
  }
  return future.get();
}

// A completion handler's arguments as a pair, from a function that starts the operation.
template <class First, class Second, class Start>
std::pair<First, Second> awaitPair(Start start) {
  auto promise = std::make_shared<std::promise<std::pair<First, Second>>>();
  std::future<std::pair<First, Second>> future = promise->get_future();
  start([promise](First first, Second second) {
    promise->set_value({std::move(first), std::move(second)});
  });
  return await(std::move(future));
}

}  // namespace e2e
