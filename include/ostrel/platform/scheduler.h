#pragma once
#include <functional>
#include <memory>
#include <string>

#include "ostrel/export.h"

namespace ostrel::platform {

// A serial queue: blocks run one at a time, in order, on a thread of the queue.
class OSTREL_API SerialQueue {
 public:
  virtual ~SerialQueue() = default;
  virtual void async(std::function<void()> block) = 0;
  // Runs the block on the queue and waits for it. Called from the queue's own
  // thread, the block runs at once (no deadlock).
  virtual void sync(const std::function<void()>& block) = 0;
  virtual bool isCurrent() const = 0;
  virtual const std::string& label() const = 0;
};

// A scheduled timer. Its block runs on the scheduler's thread.
class OSTREL_API Timer {
 public:
  virtual ~Timer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
  // Wall-clock instant (seconds since 1970) of the next firing.
  virtual double fireDate() const = 0;
  // Runs the block now; a repeating timer keeps its schedule.
  virtual void fire() = 0;
};

class OSTREL_API Scheduler {
 public:
  virtual ~Scheduler() = default;
  virtual std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) = 0;
  virtual std::shared_ptr<Timer> scheduleTimer(double intervalSecs, bool repeats,
                                               std::function<void()> block) = 0;
  // Runs the block once after the delay.
  virtual void after(double delaySecs, std::function<void()> block) = 0;
};

}  // namespace ostrel::platform
