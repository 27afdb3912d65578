#pragma once
// Waiting for what another thread does, without a fixed sleep.
#include <chrono>
#include <thread>

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

}  // namespace ostrel::test
