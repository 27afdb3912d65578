#include "ostrel/ol_notification.h"

#include <array>

namespace ostrel {

std::string_view rawValue(OLNotification notification) {
  static constexpr std::array<std::string_view, 6> kNames = {
      "OLUserStateDidChangeNotification",       "OLAnalyticEventAddedNotification",
      "OLAnalyticEventFlushedNotification",     "OLPushNotification",
      "UIApplicationWillTerminateNotification", "UIApplicationDidFinishLaunchingNotification",
  };
  return kNames[static_cast<std::size_t>(notification)];
}

uint64_t addNamedObserver(OLNotification notification, const std::string& name,
                          const void* senderObject, NotificationCallback callback) {
  return NotificationCenter::defaultCenter().addObserver(std::string(rawValue(notification)), name,
                                                         senderObject, std::move(callback));
}

void clearObserver(OLNotification notification, const std::string& name) {
  NotificationCenter::defaultCenter().removeObservers(std::string(rawValue(notification)), name);
}

void notify(OLNotification notification, const void* object, Json info, std::any carried) {
  NotificationCenter::defaultCenter().post(Notification{std::string(rawValue(notification)), object,
                                                        std::move(carried), std::move(info)});
}

}  // namespace ostrel
