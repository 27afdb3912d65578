#pragma once
// Base of the event queue's operations. An operation stays executing until it
// sets itself finished, possibly from another thread (an HTTP completion), so
// the queue never starts the next one before this one has settled.
#include <functional>
#include <memory>
#include <mutex>

namespace ostrel {

class OperationQueue;

class AsynchronousOperation : public std::enable_shared_from_this<AsynchronousOperation> {
 public:
  enum class State { initialized, ready, executing, canceled, finished };

  virtual ~AsynchronousOperation() = default;

  State state() const;
  void setState(State state);

  bool isAsynchronous() const { return true; }
  bool isReady();
  bool isExecuting() const { return state() == State::executing; }
  bool isCancelled() const { return state() == State::canceled; }
  bool isFinished() const { return state() == State::finished; }

  // Asks the operation to stop; one that has not started finishes at once when started.
  void cancel();
  // Runs after the operation finished, on the thread that finished it.
  void setCompletionBlock(std::function<void()> block);

  // The operation's work. Must end by setting the state to finished.
  virtual void main() = 0;

 private:
  friend class OperationQueue;
  void start();

  mutable std::mutex mutex_;
  State state_ = State::initialized;
  std::function<void()> completion_;
  std::function<void()> onFinished_;  // set by the queue that runs it
};

}  // namespace ostrel
