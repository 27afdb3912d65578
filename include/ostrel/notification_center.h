#pragma once
// Named in-process notifications. Observers run synchronously on the thread
// that posts, like the platform's notification centre.
#include <any>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/json.h"

namespace ostrel {

struct Notification {
  std::string name;
  const void* sender = nullptr;  // identity of the posting object, may be null
  std::any object;               // what the notification carries (an event, an error, ...)
  Json userInfo;                 // null when there is none
};

using NotificationCallback = std::function<void(const Notification&)>;

class OSTREL_API NotificationCenter {
 public:
  static NotificationCenter& defaultCenter();

  // Registers an observer of `name`, optionally only for one sender, under an
  // observer name (may be empty). Answers a token for removeObserver.
  uint64_t addObserver(const std::string& name, const std::string& observerName, const void* sender,
                       NotificationCallback callback);
  void removeObserver(uint64_t token);
  // Removes every observer registered under this observer name for `name`.
  void removeObservers(const std::string& name, const std::string& observerName);
  void post(const Notification& notification);
  std::size_t observerCount(const std::string& name) const;

 private:
  struct Observer {
    uint64_t token;
    std::string name;
    std::string observerName;
    const void* sender;
    std::shared_ptr<NotificationCallback> callback;
  };
  mutable std::mutex mutex_;
  std::vector<Observer> observers_;
  uint64_t nextToken_ = 1;
};

}  // namespace ostrel
