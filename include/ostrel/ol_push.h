#pragma once
// The pushes the library recognises: what a received notification (remote or
// local) becomes once its payload has been read.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/ol_simple_object.h"

namespace ostrel {

class ArchiveWriter;

enum class PushNotificationType { Standard, Url, Background, Ping };
// The type's text form, its case name: "Standard", "Url", "Background", "Ping".
const char* rawValue(PushNotificationType type);
std::optional<PushNotificationType> pushNotificationTypeFromRaw(const std::string& raw);

class OLPushBase {
 public:
  virtual ~OLPushBase() = default;
  virtual PushNotificationType type() const { return PushNotificationType::Ping; }
  // One line for the log.
  virtual std::string description() const;
  virtual std::string archiveClassName() const { return "Ostrel.OLPushBase"; }
  virtual void encode(ArchiveWriter& writer) const;

  std::string pushId;
  bool shown = false;    // handled because it launched the app
  bool isLocal = false;  // scheduled on this device rather than sent by the service
};

class OLStandardPush : public OLPushBase {
 public:
  PushNotificationType type() const override { return PushNotificationType::Standard; }
  std::string description() const override;
  std::string archiveClassName() const override { return "Ostrel.OLStandardPush"; }
  void encode(ArchiveWriter& writer) const override;

  std::shared_ptr<OLSimpleObject> customFields;
  std::string body;
  std::optional<int64_t> badge;
  std::optional<std::string> sound;
};

class OLUrlPush : public OLStandardPush {
 public:
  PushNotificationType type() const override { return PushNotificationType::Url; }
  std::string description() const override;
  std::string archiveClassName() const override { return "Ostrel.OLUrlPush"; }
  void encode(ArchiveWriter& writer) const override;

  std::string url;
};

class OLBackgroundPush : public OLPushBase {
 public:
  PushNotificationType type() const override { return PushNotificationType::Background; }
  std::string description() const override;
  std::string archiveClassName() const override { return "Ostrel.OLBackgroundPush"; }
  void encode(ArchiveWriter& writer) const override;

  std::shared_ptr<OLSimpleObject> customFields;  // always present
};

class OLPingPush : public OLPushBase {
 public:
  std::string archiveClassName() const override { return "Ostrel.OLPingPush"; }
};

// How a push reached the user, as the push events record it.
enum class PushReceiveType { standard, background, url, ping };
enum class PushReceiveAction { notified, opened, scheduled, urlShown };
const char* rawValue(PushReceiveType type);
const char* rawValue(PushReceiveAction action);
std::optional<PushReceiveType> pushReceiveTypeFromRaw(const std::string& raw);
std::optional<PushReceiveAction> pushReceiveActionFromRaw(const std::string& raw);
PushReceiveType receiveTypeOf(const OLPushBase& push);

class PushNotificationEventType {
 public:
  PushNotificationEventType(PushReceiveType type, PushReceiveAction action)
      : type(type), action(action) {}
  PushReceiveType type;
  PushReceiveAction action;
};

}  // namespace ostrel
