#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <queue>
#include <thread>

#include "platform/defaults.h"
#include "platform/thread_annotations.h"

namespace ostrel::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

// State shared between a queue object and its thread, so that a queue released
// from inside one of its own blocks can let its thread finish on its own.
struct QueueState {
  Mutex mutex;
  std::condition_variable wake;
  std::deque<std::function<void()>> blocks OSTREL_GUARDED_BY(mutex);
  bool stopping OSTREL_GUARDED_BY(mutex) = false;
  std::thread::id threadId OSTREL_GUARDED_BY(mutex);
};

void runQueue(const std::shared_ptr<QueueState>& state) {
  for (;;) {
    std::function<void()> block;
    {
      MutexLock lock(state->mutex);
      while (!state->stopping && state->blocks.empty()) lock.wait(state->wake);
      if (state->blocks.empty()) return;  // stopping and drained
      block = std::move(state->blocks.front());
      state->blocks.pop_front();
    }
    block();
  }
}

// Tells a queue's or the scheduler's thread to stop and waits for it. Released
// from one of its own blocks, the thread cannot be joined there: it holds the
// shared state and ends by itself.
template <class State>
void stopThread(State& state, std::thread& thread) {
  {
    MutexLock lock(state.mutex);
    state.stopping = true;
  }
  state.wake.notify_all();
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

class ThreadSerialQueue final : public SerialQueue {
 public:
  explicit ThreadSerialQueue(std::string label)
      : label_(std::move(label)), state_(std::make_shared<QueueState>()) {
    thread_ = std::thread([state = state_] { runQueue(state); });
    MutexLock lock(state_->mutex);
    state_->threadId = thread_.get_id();
  }

  // The thread drains what is queued before it ends.
  ~ThreadSerialQueue() override { stopThread(*state_, thread_); }

  void async(std::function<void()> block) override {
    // Once the block is queued it may release this queue before we return:
    // touch only the shared state after that.
    const auto state = state_;
    {
      MutexLock lock(state->mutex);
      state->blocks.push_back(std::move(block));
    }
    state->wake.notify_one();
  }

  void sync(const std::function<void()>& block) override {
    if (isCurrent()) {
      block();
      return;
    }
    Mutex doneMutex;
    std::condition_variable doneCv;
    bool done = false;
    async([&] {
      block();
      MutexLock lock(doneMutex);
      done = true;
      doneCv.notify_one();
    });
    MutexLock lock(doneMutex);
    while (!done) lock.wait(doneCv);
  }

  bool isCurrent() const override { return std::this_thread::get_id() == thread_.get_id(); }
  const std::string& label() const override { return label_; }

 private:
  std::string label_;
  std::shared_ptr<QueueState> state_;
  std::thread thread_;
};

struct TimerState {
  Mutex mutex;
  bool valid OSTREL_GUARDED_BY(mutex) = true;
  // Set before the timer is shared, never changed after.
  bool repeats = false;
  double interval = 0;
  SteadyClock::time_point deadline OSTREL_GUARDED_BY(mutex);
  std::function<void()> block OSTREL_GUARDED_BY(mutex);
};

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class SchedulerTimer final : public Timer {
 public:
  explicit SchedulerTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}

  void invalidate() override {
    MutexLock lock(state_->mutex);
    state_->valid = false;
  }
  bool isValid() const override {
    MutexLock lock(state_->mutex);
    return state_->valid;
  }
  double fireDate() const override {
    MutexLock lock(state_->mutex);
    auto left = std::chrono::duration<double>(state_->deadline - SteadyClock::now()).count();
    return wallNow() + left;
  }
  void fire() override {
    std::function<void()> block;
    {
      MutexLock lock(state_->mutex);
      if (!state_->valid) return;
      block = state_->block;
      if (!state_->repeats) state_->valid = false;
    }
    if (block) block();
  }

 private:
  std::shared_ptr<TimerState> state_;
};

SteadyClock::duration toDuration(double secs) {
  if (secs < 0) secs = 0;
  return std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(secs));
}

// State shared between the scheduler and its thread, so that a scheduler
// released from inside one of its own blocks (the block held the last
// reference to its owner) can let its thread finish on its own.
struct SchedulerState {
  struct Entry {
    SteadyClock::time_point deadline;
    std::shared_ptr<TimerState> timer;
    bool operator>(const Entry& other) const { return deadline > other.deadline; }
  };

  Mutex mutex;
  std::condition_variable wake;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<Entry>> heap OSTREL_GUARDED_BY(mutex);
  bool stopping OSTREL_GUARDED_BY(mutex) = false;

  void push(const std::shared_ptr<TimerState>& timer) {
    SteadyClock::time_point deadline;
    {
      MutexLock timerLock(timer->mutex);
      deadline = timer->deadline;
    }
    {
      MutexLock lock(mutex);
      heap.push(Entry{deadline, timer});
    }
    wake.notify_all();
  }

  void run() {
    MutexLock lock(mutex);
    while (!stopping) {
      if (heap.empty()) {
        lock.wait(wake);
        continue;
      }
      auto next = heap.top().deadline;
      if (SteadyClock::now() < next) {
        lock.waitUntil(wake, next);
        continue;
      }
      Entry entry = heap.top();
      heap.pop();
      lock.unlock();
      fire(entry);
      lock.lock();
    }
  }

  void fire(const Entry& entry) {
    std::function<void()> block;
    {
      MutexLock timerLock(entry.timer->mutex);
      if (!entry.timer->valid) return;
      block = entry.timer->block;
      if (entry.timer->repeats) {
        entry.timer->deadline = SteadyClock::now() + toDuration(entry.timer->interval);
      } else {
        entry.timer->valid = false;
      }
    }
    if (entry.timer->repeats) push(entry.timer);
    if (block) block();
  }
};

class ThreadScheduler final : public Scheduler {
 public:
  ThreadScheduler()
      : state_(std::make_shared<SchedulerState>()), thread_([state = state_] { state->run(); }) {}

  // The thread ends once the block it runs returns.
  ~ThreadScheduler() override { stopThread(*state_, thread_); }

  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) override {
    return std::make_shared<ThreadSerialQueue>(std::move(label));
  }

  std::shared_ptr<Timer> scheduleTimer(double intervalSecs, bool repeats,
                                       std::function<void()> block) override {
    auto timer = std::make_shared<TimerState>();
    timer->repeats = repeats;
    timer->interval = intervalSecs;
    {
      MutexLock lock(timer->mutex);
      timer->block = std::move(block);
      timer->deadline = SteadyClock::now() + toDuration(intervalSecs);
    }
    state_->push(timer);
    return std::make_shared<SchedulerTimer>(timer);
  }

  void after(double delaySecs, std::function<void()> block) override {
    scheduleTimer(delaySecs, false, std::move(block));
  }

 private:
  std::shared_ptr<SchedulerState> state_;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<Scheduler> makeThreadScheduler() {
  return std::make_shared<ThreadScheduler>();
}

}  // namespace ostrel::platform
