#pragma once
// Waiting for what another thread does, without a fixed sleep.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <tuple>
#include <type_traits>

namespace ostrel::test {

// Polls `pred` until it holds or `limit` has passed; answers its last value.
template <class Pred>
bool eventually(Pred pred, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (pred()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return pred();
}

// Starts a call that answers through a callback taking `Args`, and waits for
// that answer: `start` is handed the callback. Answers the one argument, or a
// tuple of them.
template <class... Args, class Start>
auto await(Start start) {
  using Values = std::tuple<std::decay_t<Args>...>;
  std::promise<Values> done;
  start([&done](Args... args) { done.set_value(Values(std::move(args)...)); });
  Values values = done.get_future().get();
  if constexpr (sizeof...(Args) == 1) {
    return std::get<0>(std::move(values));
  } else {
    return values;
  }
}

// Runs `work` on a thread of its own and waits for it: a hang aborts the test
// program after `limit` instead of stalling the suite. What `work` holds is
// released before the wait ends.
inline void finishesWithin(std::chrono::seconds limit, std::function<void()> work) {
  auto finished = std::make_shared<std::promise<void>>();
  auto done = finished->get_future();
  std::thread([work = std::move(work), finished]() mutable {
    work();
    work = nullptr;
    finished->set_value();
  }).detach();
  if (done.wait_for(limit) != std::future_status::ready) {
    std::fprintf(stderr, "the library hung\n");
    std::abort();
  }
}

}  // namespace ostrel::test
