#pragma once
// Local notifications on a desktop: each scheduled one is a file in the storage
// root until it fires, so a notification survives restarts of the app.
#include <memory>
#include <mutex>
#include <string>

#include "ostrel/platform.h"

namespace ostrel::platform {

class LocalNotificationStore : public LocalNotifications,
                               public std::enable_shared_from_this<LocalNotificationStore> {
 public:
  LocalNotificationStore(std::shared_ptr<FileSystem> files, std::weak_ptr<Scheduler> scheduler,
                         std::shared_ptr<Clock> clock);
  Result<void> schedule(const LocalNotification& notification) override;
  void setDeliveryHandler(Delivery handler) override;
  std::vector<LocalNotification> pending() const override;

 private:
  void arm(double fireDate);
  // Hands every notification whose instant has come to the handler, once.
  void deliverDue();
  std::string pathOf(const std::string& identifier) const;

  std::shared_ptr<FileSystem> files_;
  // Not owned: the platform bundle owns the scheduler, and a timer block that
  // held the last reference would end the scheduler on its own thread.
  std::weak_ptr<Scheduler> scheduler_;
  std::shared_ptr<Clock> clock_;
  std::string folder_;
  mutable std::mutex mutex_;
  Delivery handler_;
};

}  // namespace ostrel::platform
