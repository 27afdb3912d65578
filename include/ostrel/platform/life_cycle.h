#pragma once
// The host application's life cycle. A phone host forwards the system's
// notifications here; a desktop host calls these itself.
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ostrel/export.h"

namespace ostrel::platform {

enum class LifeCycleEvent {
  DidFinishLaunching,
  DidEnterBackground,
  WillEnterForeground,
  WillTerminate
};

// Any thread may report an event; observers run on the thread that reports it.
class OSTREL_API AppLifeCycle {
 public:
  using Observer = std::function<void(LifeCycleEvent)>;

  void didFinishLaunching() { post(LifeCycleEvent::DidFinishLaunching); }
  void didEnterBackground() { post(LifeCycleEvent::DidEnterBackground); }
  void willEnterForeground() { post(LifeCycleEvent::WillEnterForeground); }
  void willTerminate() { post(LifeCycleEvent::WillTerminate); }

  // Any thread. Answers the token that removes the observer.
  int addObserver(Observer observer);
  // Any thread, observers included. Once it returns the observer is not running
  // on another thread and is never called again, so whatever it uses may go:
  // it waits for a call in progress elsewhere (never for one of its own thread).
  void removeObserver(int token);

 private:
  struct Entry {
    int token = 0;
    Observer observer;
    bool removed = false;
    std::vector<std::thread::id> callers;  // threads inside the observer now
  };

  void post(LifeCycleEvent event);

  std::mutex mutex_;
  std::condition_variable callEnded_;
  std::vector<std::shared_ptr<Entry>> observers_;
  int next_ = 0;
};

}  // namespace ostrel::platform
