#include "platform/local_notification_store.h"

#include <algorithm>

namespace ostrel::platform {

Json LocalNotification::toJson() const {
  Json j = {{"identifier", identifier}, {"fire_date", fireDate}, {"user_info", userInfo}};
  if (alertBody) j["alert_body"] = *alertBody;
  if (applicationIconBadgeNumber) j["badge"] = *applicationIconBadgeNumber;
  if (soundName) j["sound"] = *soundName;
  return j;
}

std::optional<LocalNotification> LocalNotification::fromJson(const Json& j) {
  if (!j.is_object() || !j.contains("identifier") || !j["identifier"].is_string() ||
      !j.contains("fire_date") || !j["fire_date"].is_number() || !j.contains("user_info") ||
      !j["user_info"].is_object()) {
    return std::nullopt;
  }
  LocalNotification n;
  n.identifier = j["identifier"].get<std::string>();
  n.fireDate = j["fire_date"].get<double>();
  n.userInfo = j["user_info"];
  if (j.contains("alert_body") && j["alert_body"].is_string()) n.alertBody = j["alert_body"];
  if (j.contains("badge") && j["badge"].is_number_integer()) {
    n.applicationIconBadgeNumber = j["badge"].get<int64_t>();
  }
  if (j.contains("sound") && j["sound"].is_string()) n.soundName = j["sound"];
  return n;
}

LocalNotificationStore::LocalNotificationStore(std::shared_ptr<FileSystem> files,
                                               std::weak_ptr<Scheduler> scheduler,
                                               std::shared_ptr<Clock> clock)
    : files_(std::move(files)),
      scheduler_(std::move(scheduler)),
      clock_(std::move(clock)),
      folder_(files_->storageRoot() + "/LocalNotifications") {}

std::string LocalNotificationStore::pathOf(const std::string& identifier) const {
  return folder_ + "/" + identifier + ".json";
}

Result<void> LocalNotificationStore::schedule(const LocalNotification& notification) {
  const bool safeName =
      !notification.identifier.empty() &&
      std::all_of(notification.identifier.begin(), notification.identifier.end(),
                  [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_'; });
  if (!safeName) {
    return OLError::LocalError(LocalErrorCodes::PushNotificationError,
                               "Invalid local notification identifier " + notification.identifier);
  }
  {
    std::lock_guard lock(mutex_);
    if (auto made = files_->createDirectories(folder_); !made) return made.error();
    auto written =
        files_->writeFileAtomic(pathOf(notification.identifier), notification.toJson().dump());
    if (!written) return written.error();
  }
  arm(notification.fireDate);
  return {};
}

void LocalNotificationStore::setDeliveryHandler(Delivery handler) {
  {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
  }
  for (const auto& n : pending()) arm(n.fireDate);
}

std::vector<LocalNotification> LocalNotificationStore::pending() const {
  std::lock_guard lock(mutex_);
  std::vector<LocalNotification> out;
  auto names = files_->listDirectory(folder_);
  if (!names) return out;
  for (const auto& name : *names) {
    if (!name.ends_with(".json")) continue;
    auto bytes = files_->readFile(folder_ + "/" + name);
    if (!bytes) continue;
    auto parsed = parseJson(*bytes);
    if (!parsed) continue;
    if (auto n = LocalNotification::fromJson(*parsed)) out.push_back(std::move(*n));
  }
  std::sort(out.begin(), out.end(),
            [](const auto& a, const auto& b) { return a.fireDate < b.fireDate; });
  return out;
}

void LocalNotificationStore::arm(double fireDate) {
  auto scheduler = scheduler_.lock();
  if (!scheduler) return;
  std::weak_ptr<LocalNotificationStore> weak = weak_from_this();
  scheduler->after(std::max(0.0, fireDate - clock_->now()), [weak] {
    if (auto self = weak.lock()) self->deliverDue();
  });
}

void LocalNotificationStore::deliverDue() {
  Delivery handler;
  {
    std::lock_guard lock(mutex_);
    handler = handler_;
  }
  if (!handler) return;
  const double now = clock_->now();
  for (const auto& n : pending()) {
    if (n.fireDate > now) break;
    bool mine;
    {
      // Only the caller that removes the file delivers it: timers may overlap.
      std::lock_guard lock(mutex_);
      mine = files_->exists(pathOf(n.identifier)) && files_->remove(pathOf(n.identifier));
    }
    if (mine) handler(n);
  }
}

}  // namespace ostrel::platform
