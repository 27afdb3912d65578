#pragma once
// Runs operations one at a time, in the order added, on a serial queue. Can be
// suspended: queued operations wait, the running one completes.
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "ostrel/platform/scheduler.h"
#include "queue/asynchronous_operation.h"

namespace ostrel {

class OperationQueue : public std::enable_shared_from_this<OperationQueue> {
 public:
  static std::shared_ptr<OperationQueue> make(std::shared_ptr<platform::SerialQueue> underlying);

  void addOperation(std::shared_ptr<AsynchronousOperation> operation);
  // Operations not finished yet: the waiting ones and the one running.
  std::vector<std::shared_ptr<AsynchronousOperation>> operations() const;
  std::size_t operationCount() const;
  void setSuspended(bool suspended);
  bool isSuspended() const;
  // Blocks until nothing is queued or running (or the queue is suspended with
  // nothing running). Not to be called from the underlying queue.
  void waitUntilAllOperationsAreFinished();

  const std::shared_ptr<platform::SerialQueue>& underlyingQueue() const { return underlying_; }

 private:
  explicit OperationQueue(std::shared_ptr<platform::SerialQueue> underlying)
      : underlying_(std::move(underlying)) {}
  void startNextLocked(std::unique_lock<std::mutex>& lock);
  void operationFinished();

  std::shared_ptr<platform::SerialQueue> underlying_;
  mutable std::mutex mutex_;
  std::condition_variable idle_;
  std::deque<std::shared_ptr<AsynchronousOperation>> waiting_;
  std::shared_ptr<AsynchronousOperation> running_;
  bool suspended_ = false;
};

}  // namespace ostrel
