#pragma once
// The host's callbacks never run on the thread of the call that asked for them.
// A call that can answer at once (refused input, a cached reply, no user) would
// otherwise answer inside the call: a host that holds its own lock around the
// call and takes it again in the callback would deadlock on its own thread, and
// code after the call would run after its callback. Such answers go to the HTTP
// client's network thread, where every other answer runs.
#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "platform/platform_ref.h"

namespace ostrel {

// Held for the length of one public call: answers given before the call
// returns are handed to the network thread; later ones run where they come
// (the network thread already).
template <class... Args>
class AnswerOffCaller {
 public:
  using Callback = std::function<void(Args...)>;

  AnswerOffCaller(PlatformRef platform, Callback callback)
      : state_(std::make_shared<State>(std::move(platform), std::move(callback))) {}
  ~AnswerOffCaller() { state_->returned.store(true); }
  AnswerOffCaller(const AnswerOffCaller&) = delete;
  AnswerOffCaller& operator=(const AnswerOffCaller&) = delete;

  // What the call hands on in place of the host's callback.
  Callback callback() const {
    return [state = state_](Args... args) {
      if (!state->callback) return;
      if (state->returned.load()) return state->callback(std::move(args)...);
      state->platform->http->dispatch(
          [state, ... args = std::move(args)]() mutable { state->callback(std::move(args)...); });
    };
  }

 private:
  struct State {
    State(PlatformRef p, Callback c) : platform(std::move(p)), callback(std::move(c)) {}
    PlatformRef platform;
    Callback callback;
    std::atomic<bool> returned{false};
  };
  std::shared_ptr<State> state_;
};

// For a callback kept beyond one call (a builder's flow-complete callback):
// every answer is handed to the network thread, in the order given.
template <class... Args>
std::function<void(Args...)> answeredOnNetworkThread(PlatformRef platform,
                                                     std::function<void(Args...)> callback) {
  if (!callback) return callback;
  return [platform = std::move(platform), callback = std::move(callback)](Args... args) {
    platform->http->dispatch(
        [callback, ... args = std::move(args)]() mutable { callback(std::move(args)...); });
  };
}

}  // namespace ostrel
