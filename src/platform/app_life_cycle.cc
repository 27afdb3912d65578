#include <algorithm>

#include "ostrel/platform/life_cycle.h"

namespace ostrel::platform {

int AppLifeCycle::addObserver(Observer observer) {
  std::lock_guard lock(mutex_);
  auto entry = std::make_shared<Entry>();
  entry->token = ++next_;
  entry->observer = std::move(observer);
  observers_.push_back(std::move(entry));
  return next_;
}

void AppLifeCycle::removeObserver(int token) {
  std::unique_lock lock(mutex_);
  auto it = std::find_if(observers_.begin(), observers_.end(),
                         [&](const auto& e) { return e->token == token; });
  if (it == observers_.end()) return;
  std::shared_ptr<Entry> entry = *it;
  observers_.erase(it);
  entry->removed = true;
  const auto self = std::this_thread::get_id();
  callEnded_.wait(lock, [&] {
    return std::all_of(entry->callers.begin(), entry->callers.end(),
                       [&](const auto& id) { return id == self; });
  });
}

void AppLifeCycle::post(LifeCycleEvent event) {
  std::vector<std::shared_ptr<Entry>> entries;
  {
    std::lock_guard lock(mutex_);
    entries = observers_;
  }
  const auto self = std::this_thread::get_id();
  for (const auto& entry : entries) {
    {
      std::lock_guard lock(mutex_);
      // Removed while the earlier observers ran: its owner may be gone.
      if (entry->removed) continue;
      entry->callers.push_back(self);
    }
    // Ends the call also when the observer throws, so that no removal waits forever.
    struct CallEnd {
      AppLifeCycle& owner;
      Entry& entry;
      std::thread::id self;
      ~CallEnd() {
        std::lock_guard lock(owner.mutex_);
        entry.callers.erase(std::find(entry.callers.begin(), entry.callers.end(), self));
        owner.callEnded_.notify_all();
      }
    } end{*this, *entry, self};
    // Outside the lock: an observer may report events or remove observers itself.
    entry->observer(event);
  }
}

}  // namespace ostrel::platform
