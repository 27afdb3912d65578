#include "ostrel/notification_center.h"

#include <algorithm>

namespace ostrel {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: threads of a process-wide library may post while the process exits.
  static auto* center = new NotificationCenter();
  return *center;
}

uint64_t NotificationCenter::addObserver(const std::string& name, const std::string& observerName,
                                         const void* sender, NotificationCallback callback) {
  std::lock_guard lock(mutex_);
  uint64_t token = nextToken_++;
  observers_.push_back(Observer{token, name, observerName, sender,
                                std::make_shared<NotificationCallback>(std::move(callback))});
  return token;
}

void NotificationCenter::removeObserver(uint64_t token) {
  std::lock_guard lock(mutex_);
  std::erase_if(observers_, [&](const Observer& o) { return o.token == token; });
}

void NotificationCenter::removeObservers(const std::string& name, const std::string& observerName) {
  std::lock_guard lock(mutex_);
  std::erase_if(observers_, [&](const Observer& o) {
    return o.name == name && o.observerName == observerName;
  });
}

void NotificationCenter::post(const Notification& notification) {
  // Callbacks run outside the lock, so an observer may add or remove observers.
  std::vector<std::shared_ptr<NotificationCallback>> matching;
  {
    std::lock_guard lock(mutex_);
    for (const auto& o : observers_) {
      if (o.name == notification.name && (o.sender == nullptr || o.sender == notification.sender)) {
        matching.push_back(o.callback);
      }
    }
  }
  for (const auto& callback : matching) (*callback)(notification);
}

std::size_t NotificationCenter::observerCount(const std::string& name) const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count_if(observers_.begin(), observers_.end(),
                                                [&](const Observer& o) { return o.name == name; }));
}

}  // namespace ostrel
