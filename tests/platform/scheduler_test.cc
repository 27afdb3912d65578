#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "platform/defaults.h"
#include "support/eventually.h"

namespace ostrel::platform {
namespace {

using namespace std::chrono_literals;

using test::eventually;

TEST(SerialQueueTest, RunsBlocksInOrderOneAtATimeFromManyThreads) {
  auto scheduler = makeThreadScheduler();
  auto queue = scheduler->makeSerialQueue("test.serial");
  std::vector<int> seen;  // touched only on the queue
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::thread> producers;
  for (int t = 0; t < 4; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < 250; ++i) {
        queue->async([&, v = t * 1000 + i] {
          if (running.fetch_add(1) != 0) overlapped = true;
          seen.push_back(v);
          running.fetch_sub(1);
        });
      }
    });
  }
  for (auto& p : producers) p.join();
  queue->sync([] {});
  EXPECT_FALSE(overlapped);
  ASSERT_EQ(seen.size(), 1000u);
  // Per producer, its blocks ran in the order it queued them.
  std::vector<int> last(4, -1);
  for (int v : seen) {
    EXPECT_GT(v % 1000, last[v / 1000]);
    last[v / 1000] = v % 1000;
  }
}

TEST(SerialQueueTest, SyncFromItsOwnThreadDoesNotDeadlock) {
  auto scheduler = makeThreadScheduler();
  auto queue = scheduler->makeSerialQueue("test.reentrant");
  std::promise<bool> inner;
  queue->async([&] {
    bool ran = false;
    queue->sync([&] { ran = queue->isCurrent(); });
    inner.set_value(ran);
  });
  auto f = inner.get_future();
  ASSERT_EQ(f.wait_for(5s), std::future_status::ready);
  EXPECT_TRUE(f.get());
  EXPECT_FALSE(queue->isCurrent());
}

TEST(SerialQueueTest, ReleasedFromItsOwnBlockFinishesCleanly) {
  auto scheduler = makeThreadScheduler();
  std::promise<void> done;
  {
    auto queue = scheduler->makeSerialQueue("test.self");
    auto* raw = queue.get();
    raw->async([q = std::move(queue), &done]() mutable {
      q.reset();  // the last owner goes away inside the queue's own block
      done.set_value();
    });
  }
  EXPECT_EQ(done.get_future().wait_for(5s), std::future_status::ready);
}

TEST(TimerTest, RepeatingTimerFiresUntilInvalidated) {
  auto scheduler = makeThreadScheduler();
  std::atomic<int> fired{0};
  auto timer = scheduler->scheduleTimer(0.01, true, [&] { fired++; });
  EXPECT_TRUE(eventually([&] { return fired >= 3; }));
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  int at = fired;
  std::this_thread::sleep_for(50ms);
  EXPECT_LE(fired, at + 1);  // at most one firing already under way
}

TEST(TimerTest, OneShotFiresOnceAndManualFireRunsAtOnce) {
  auto scheduler = makeThreadScheduler();
  std::atomic<int> fired{0};
  auto timer = scheduler->scheduleTimer(60, false, [&] { fired++; });
  EXPECT_GT(timer->fireDate(), 0);
  timer->fire();
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isValid());
  timer->fire();
  EXPECT_EQ(fired, 1);
}

TEST(TimerTest, SchedulerDestructionWithPendingTimers) {
  std::atomic<int> fired{0};
  {
    auto scheduler = makeThreadScheduler();
    for (int i = 0; i < 10; ++i) scheduler->scheduleTimer(3600, true, [&] { fired++; });
  }
  EXPECT_EQ(fired, 0);
}

}  // namespace
}  // namespace ostrel::platform
