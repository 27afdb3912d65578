#pragma once
// Pushes on their way to the host's callback. Each push is kept in a file of
// its own, named by its arrival number, until the callback has taken it: a
// push that arrives before any callback is set, or that still waits when the
// app stops, reaches the next callback. Every push is handed over exactly
// once, in arrival order, whatever the threads that add pushes or set the
// callback; none waits while a callback is set.
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "ostrel/ol_push.h"
#include "platform/platform_ref.h"
#include "platform/thread_annotations.h"

namespace ostrel {

class PendingPushes {
 public:
  using Callback = std::function<void(std::shared_ptr<OLPushBase>)>;

  // Takes over the pushes an earlier run left in `folder`.
  PendingPushes(PlatformRef platform, std::string folder);

  // The callback runs on the thread of the call (setCallback or add) that
  // hands the push over, never under a lock of ours; a callback may add pushes
  // or set a new callback itself.
  void setCallback(Callback callback);
  void add(std::shared_ptr<OLPushBase> push);

 private:
  struct Entry {
    uint64_t number;
    std::string file;  // empty when the push could not be stored
    std::shared_ptr<OLPushBase> push;
  };
  void insert(Entry entry) OSTREL_REQUIRES(mutex_);
  void deliver();

  const PlatformRef platform_;
  const std::string folder_;
  Mutex mutex_;
  Callback callback_ OSTREL_GUARDED_BY(mutex_);
  std::deque<Entry> waiting_ OSTREL_GUARDED_BY(mutex_);  // by arrival number
  uint64_t next_ OSTREL_GUARDED_BY(mutex_) = 0;
  bool delivering_ OSTREL_GUARDED_BY(mutex_) =
      false;  // one thread hands pushes over at a time, in order
};

}  // namespace ostrel
