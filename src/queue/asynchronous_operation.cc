#include "queue/asynchronous_operation.h"

namespace ostrel {

AsynchronousOperation::State AsynchronousOperation::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

void AsynchronousOperation::setState(State state) {
  std::function<void()> completion;
  std::function<void()> onFinished;
  {
    std::lock_guard lock(mutex_);
    if (state_ == State::finished) return;  // finishing is final
    state_ = state;
    if (state != State::finished) return;
    completion = std::move(completion_);
    onFinished = std::move(onFinished_);
  }
  if (completion) completion();
  if (onFinished) onFinished();
}

bool AsynchronousOperation::isReady() {
  std::lock_guard lock(mutex_);
  if (state_ == State::initialized) state_ = State::ready;
  return state_ == State::ready;
}

void AsynchronousOperation::cancel() {
  std::lock_guard lock(mutex_);
  if (state_ == State::initialized || state_ == State::ready) state_ = State::canceled;
}

void AsynchronousOperation::setCompletionBlock(std::function<void()> block) {
  std::lock_guard lock(mutex_);
  completion_ = std::move(block);
}

void AsynchronousOperation::start() {
  if (isCancelled()) {
    setState(State::finished);
    return;
  }
  main();
}

}  // namespace ostrel
