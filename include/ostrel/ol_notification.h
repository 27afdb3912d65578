#pragma once
// The names of the notifications the library posts and observes.
#include <string_view>

#include "ostrel/export.h"
#include "ostrel/notification_center.h"

namespace ostrel {

enum class OLNotification {
  UserLoginStateChanged,
  AnalyticEventAdded,
  AnalyticEventsFlushed,
  PushNotificationReceived,
  UIApplicationWillTerminateNotification,
  UIApplicationDidFinishLaunchingNotification,
};

OSTREL_API std::string_view rawValue(OLNotification notification);

// Registers a callback under an observer name, for one sender when given.
OSTREL_API uint64_t addNamedObserver(OLNotification notification, const std::string& name,
                                     const void* senderObject, NotificationCallback callback);
// Removes the observers registered under that observer name.
OSTREL_API void clearObserver(OLNotification notification, const std::string& name);
// Posts the notification with an optional sender, carried object and information.
OSTREL_API void notify(OLNotification notification, const void* object = nullptr,
                       Json info = nullptr, std::any carried = {});

}  // namespace ostrel
