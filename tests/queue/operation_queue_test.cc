#include "queue/operation_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

#include "platform/defaults.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

// What the operations did: the order they finished in, and whether two ran at once.
struct Record {
  std::mutex mutex;
  std::vector<int> finished;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
};

// Finishes from another thread after a pause, like an HTTP completion.
class SlowOperation : public AsynchronousOperation {
 public:
  SlowOperation(int id, Record& record) : id_(id), record_(record) {}
  void main() override {
    setState(State::executing);
    if (record_.running.fetch_add(1) != 0) record_.overlapped = true;
    std::thread([self = shared_from_this(), this] {
      std::this_thread::sleep_for(2ms);
      {
        std::lock_guard lock(record_.mutex);
        record_.finished.push_back(id_);
      }
      record_.running.fetch_sub(1);
      setState(State::finished);
    }).detach();
  }

 private:
  int id_;
  Record& record_;
};

class OperationQueueTest : public ::testing::Test {
 protected:
  std::shared_ptr<platform::Scheduler> scheduler_ = platform::makeThreadScheduler();
  std::shared_ptr<OperationQueue> queue_ =
      OperationQueue::make(scheduler_->makeSerialQueue("test.operations"));
  Record record_;

  std::shared_ptr<SlowOperation> op(int id) { return std::make_shared<SlowOperation>(id, record_); }
};

TEST_F(OperationQueueTest, AsynchronousOperationsRunOneAtATimeInOrder) {
  for (int i = 0; i < 20; ++i) queue_->addOperation(op(i));
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(record_.overlapped);
  std::vector<int> expected(20);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(record_.finished, expected);
}

// Suspended, the running one finishes and the rest wait; a cancelled one
// then finishes without running, and its completion runs.
TEST_F(OperationQueueTest, SuspendedQueueHoldsTheRestAndACancelledOneNeverRuns) {
  queue_->addOperation(op(1));
  queue_->setSuspended(true);
  queue_->addOperation(op(2));
  auto cancelled = op(7);
  std::atomic<bool> completed{false};
  cancelled->setCompletionBlock([&] { completed = true; });
  queue_->addOperation(cancelled);
  queue_->addOperation(op(3));
  queue_->waitUntilAllOperationsAreFinished();
  std::this_thread::sleep_for(20ms);
  {
    std::lock_guard lock(record_.mutex);
    EXPECT_LE(record_.finished.size(), 1u);
  }
  EXPECT_EQ(queue_->operationCount(), 3u);
  cancelled->cancel();
  queue_->setSuspended(false);
  queue_->waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(completed);
  EXPECT_EQ(record_.finished, (std::vector<int>{1, 2, 3}));
  // Finishing is final: a late state change must not make it look unfinished.
  cancelled->setState(AsynchronousOperation::State::executing);
  EXPECT_TRUE(cancelled->isFinished());
}

}  // namespace
}  // namespace ostrel
