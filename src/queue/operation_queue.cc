#include "queue/operation_queue.h"

#include <condition_variable>

namespace ostrel {

std::shared_ptr<OperationQueue> OperationQueue::make(
    std::shared_ptr<platform::SerialQueue> underlying) {
  return std::shared_ptr<OperationQueue>(new OperationQueue(std::move(underlying)));
}

void OperationQueue::addOperation(std::shared_ptr<AsynchronousOperation> operation) {
  std::unique_lock lock(mutex_);
  waiting_.push_back(std::move(operation));
  startNextLocked(lock);
}

void OperationQueue::startNextLocked(std::unique_lock<std::mutex>& lock) {
  if (running_ || suspended_ || waiting_.empty()) {
    if (!running_ && (waiting_.empty() || suspended_)) idle_.notify_all();
    return;
  }
  running_ = std::move(waiting_.front());
  waiting_.pop_front();
  auto op = running_;
  std::weak_ptr<OperationQueue> weak = weak_from_this();
  {
    std::lock_guard opLock(op->mutex_);
    op->onFinished_ = [weak] {
      if (auto queue = weak.lock()) queue->operationFinished();
    };
  }
  lock.unlock();
  (void)op->isReady();
  underlying_->async([op] { op->start(); });
  lock.lock();
}

void OperationQueue::operationFinished() {
  std::unique_lock lock(mutex_);
  running_.reset();
  startNextLocked(lock);
}

std::vector<std::shared_ptr<AsynchronousOperation>> OperationQueue::operations() const {
  std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<AsynchronousOperation>> out;
  if (running_) out.push_back(running_);
  out.insert(out.end(), waiting_.begin(), waiting_.end());
  return out;
}

std::size_t OperationQueue::operationCount() const {
  std::lock_guard lock(mutex_);
  return waiting_.size() + (running_ ? 1 : 0);
}

void OperationQueue::setSuspended(bool suspended) {
  std::unique_lock lock(mutex_);
  suspended_ = suspended;
  startNextLocked(lock);
}

bool OperationQueue::isSuspended() const {
  std::lock_guard lock(mutex_);
  return suspended_;
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [&] { return !running_ && (waiting_.empty() || suspended_); });
}

}  // namespace ostrel
