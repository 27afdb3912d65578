#pragma once
// Local pushes: notifications this device shows at a chosen instant and that
// the library later recognises as its own pushes. Setters chain.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/ol_push.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/platform.h"
#include "ostrel/platform/local_notifications.h"
#include "ostrel/result.h"

namespace ostrel {

class OLPushManager;

// Obtained from OLPushManager::getPushBuilder.
class OSTREL_API OLPushBuilder {
 public:
  OLPushBuilder& setDate(double secondsSince1970);
  OLPushBuilder& setBody(std::string body);
  OLPushBuilder& setBadgeCounter(int64_t count);
  OLPushBuilder& setSound(std::string name);
  OLPushBuilder& setCustomFields(std::shared_ptr<OLSimpleObject> fields);
  OLPushBuilder& setUrl(std::string url);
  // Local pushes carry no title; kept so host code written for other platforms builds.
  OLPushBuilder& setTitle(const std::string& title);

  Result<void> scheduleLocalStandardPush();
  Result<void> scheduleLocalUrlPush();
  // Always fails: a local push is never silent.
  Result<void> scheduleLocalBackgroundPush();

  // A remote payload (the notification's user information) as a push object.
  static Result<std::shared_ptr<OLPushBase>> buildPushObject(const Json& fromUserInfoDictionary,
                                                             bool isAtStartup);
  // The same from the payload's JSON text; text that is not a JSON object is
  // "Unrecognized User Info Dictionary".
  static Result<std::shared_ptr<OLPushBase>> buildPushObject(std::string_view fromUserInfoText,
                                                             bool isAtStartup);
  // A local notification scheduled by this library, back as a push object.
  static Result<std::shared_ptr<OLPushBase>> buildPushObject(
      const platform::LocalNotification& fromLocalNotification, bool isAtStartup);

 private:
  friend class OLPushManager;
  // Told about every push this builder schedules (the push manager records it).
  using ScheduledObserver = std::function<void(const OLPushBase&)>;
  // Schedules through the platform's local notifications, timed by its clock.
  OLPushBuilder(std::shared_ptr<const Platform> platform, ScheduledObserver onScheduled)
      : platform_(std::move(platform)), onScheduled_(std::move(onScheduled)) {}

  platform::LocalNotification buildNotification(const std::string& pushId) const;
  Result<void> checkUrlRequirements() const;
  Result<void> scheduleNotification(const platform::LocalNotification& notification);

  std::shared_ptr<const Platform> platform_;
  std::optional<double> _fireDate;
  std::optional<std::string> _body;
  std::optional<int64_t> _badge;
  std::optional<std::string> _sound;
  std::shared_ptr<OLSimpleObject> _customFields;
  std::optional<std::string> _url;
  ScheduledObserver onScheduled_;
};

}  // namespace ostrel
