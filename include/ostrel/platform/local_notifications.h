#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/result.h"

namespace ostrel::platform {

// A notification shown by this device at a given instant.
struct OSTREL_API LocalNotification {
  std::string identifier;
  double fireDate = 0;  // seconds since 1970
  std::optional<std::string> alertBody;
  std::optional<int64_t> applicationIconBadgeNumber;
  std::optional<std::string> soundName;
  Json userInfo = Json::object();

  Json toJson() const;
  // Nothing for a shape that is not one of ours.
  static std::optional<LocalNotification> fromJson(const Json& json);
};

// Schedules local notifications and hands each back when it fires.
class OSTREL_API LocalNotifications {
 public:
  using Delivery = std::function<void(const LocalNotification&)>;
  virtual ~LocalNotifications() = default;
  virtual Result<void> schedule(const LocalNotification& notification) = 0;
  // Notifications that fired while nobody listened are delivered once a handler is set.
  virtual void setDeliveryHandler(Delivery handler) = 0;
  virtual std::vector<LocalNotification> pending() const = 0;
};

}  // namespace ostrel::platform
