#pragma once
// The host application's life cycle. A phone host forwards the system's
// notifications here; a desktop host calls these itself.
#include <functional>
#include <mutex>
#include <vector>

namespace ostrel::platform {

enum class LifeCycleEvent {
  DidFinishLaunching,
  DidEnterBackground,
  WillEnterForeground,
  WillTerminate
};

class AppLifeCycle {
 public:
  using Observer = std::function<void(LifeCycleEvent)>;

  void didFinishLaunching() { post(LifeCycleEvent::DidFinishLaunching); }
  void didEnterBackground() { post(LifeCycleEvent::DidEnterBackground); }
  void willEnterForeground() { post(LifeCycleEvent::WillEnterForeground); }
  void willTerminate() { post(LifeCycleEvent::WillTerminate); }

  // Observers run on the thread that reports the event.
  int addObserver(Observer observer) {
    std::lock_guard lock(mutex_);
    observers_.push_back({++next_, std::move(observer)});
    return next_;
  }
  void removeObserver(int token) {
    std::lock_guard lock(mutex_);
    std::erase_if(observers_, [&](const auto& o) { return o.first == token; });
  }

 private:
  void post(LifeCycleEvent event) {
    std::vector<Observer> copy;
    {
      std::lock_guard lock(mutex_);
      for (const auto& o : observers_) copy.push_back(o.second);
    }
    for (const auto& o : copy) o(event);
  }

  std::mutex mutex_;
  std::vector<std::pair<int, Observer>> observers_;
  int next_ = 0;
};

}  // namespace ostrel::platform
