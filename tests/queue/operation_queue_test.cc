#include "queue/operation_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/defaults.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

// Finishes from another thread after a pause, like an HTTP completion.
class SlowOperation : public AsynchronousOperation {
 public:
  SlowOperation(int id, std::vector<int>& log, std::mutex& m, std::atomic<int>& running,
                std::atomic<bool>& overlapped)
      : id_(id), log_(log), m_(m), running_(running), overlapped_(overlapped) {}
  void main() override {
    setState(State::executing);
    if (running_.fetch_add(1) != 0) overlapped_ = true;
    std::thread([self = shared_from_this(), this] {
      std::this_thread::sleep_for(2ms);
      {
        std::lock_guard lock(m_);
        log_.push_back(id_);
      }
      running_.fetch_sub(1);
      setState(State::finished);
    }).detach();
  }

 private:
  int id_;
  std::vector<int>& log_;
  std::mutex& m_;
  std::atomic<int>& running_;
  std::atomic<bool>& overlapped_;
};

class OperationQueueTest : public ::testing::Test {
 protected:
  std::shared_ptr<platform::Scheduler> scheduler_ = platform::makeThreadScheduler();
  std::shared_ptr<OperationQueue> queue_ =
      OperationQueue::make(scheduler_->makeSerialQueue("test.operations"));
  std::vector<int> log_;
  std::mutex m_;
  std::atomic<int> running_{0};
  std::atomic<bool> overlapped_{false};

  std::shared_ptr<SlowOperation> op(int id) {
    return std::make_shared<SlowOperation>(id, log_, m_, running_, overlapped_);
  }
};

TEST_F(OperationQueueTest, AsynchronousOperationsRunOneAtATimeInOrder) {
  for (int i = 0; i < 20; ++i) queue_->addOperation(op(i));
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(overlapped_);
  std::vector<int> expected(20);
  for (int i = 0; i < 20; ++i) expected[i] = i;
  EXPECT_EQ(log_, expected);
  EXPECT_EQ(queue_->operationCount(), 0u);
}

TEST_F(OperationQueueTest, SuspendedQueueLetsTheRunningOneFinishAndHoldsTheRest) {
  auto first = op(1);
  queue_->addOperation(first);
  queue_->setSuspended(true);
  queue_->addOperation(op(2));
  queue_->addOperation(op(3));
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(first->isFinished() || first->isExecuting() || log_.empty());
  std::this_thread::sleep_for(20ms);
  {
    std::lock_guard lock(m_);
    EXPECT_LE(log_.size(), 1u);
  }
  EXPECT_EQ(queue_->operationCount(), 2u);
  EXPECT_TRUE(queue_->isSuspended());
  queue_->setSuspended(false);
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(log_, (std::vector<int>{1, 2, 3}));
}

TEST_F(OperationQueueTest, CancelledOperationFinishesWithoutRunningAndCompletionRuns) {
  queue_->setSuspended(true);
  auto cancelled = op(7);
  std::atomic<bool> completed{false};
  cancelled->setCompletionBlock([&] { completed = true; });
  queue_->addOperation(cancelled);
  cancelled->cancel();
  EXPECT_TRUE(cancelled->isCancelled());
  queue_->setSuspended(false);
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(cancelled->isFinished());
  EXPECT_TRUE(completed);
  EXPECT_TRUE(log_.empty());
}

TEST(AsynchronousOperationTest, FinishingIsFinal) {
  struct Noop : AsynchronousOperation {
    void main() override { setState(State::finished); }
  };
  auto o = std::make_shared<Noop>();
  o->setState(AsynchronousOperation::State::finished);
  o->setState(AsynchronousOperation::State::executing);
  EXPECT_TRUE(o->isFinished());
}

}  // namespace
}  // namespace ostrel
