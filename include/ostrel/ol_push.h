#pragma once
// The pushes the library recognises: what a received notification (remote or
// local) becomes once its payload has been read.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/export.h"
#include "ostrel/ol_simple_object.h"

namespace ostrel {

class ArchiveWriter;

enum class PushNotificationType { Standard, Url, Background, Ping };
// The type's text form, its case name: "Standard", "Url", "Background", "Ping".
OSTREL_API const char* rawValue(PushNotificationType type);
OSTREL_API std::optional<PushNotificationType> pushNotificationTypeFromRaw(const std::string& raw);

class OSTREL_API OLPushBase {
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

class OSTREL_API OLStandardPush : public OLPushBase {
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

class OSTREL_API OLUrlPush : public OLStandardPush {
 public:
  PushNotificationType type() const override { return PushNotificationType::Url; }
  std::string description() const override;
  std::string archiveClassName() const override { return "Ostrel.OLUrlPush"; }
  void encode(ArchiveWriter& writer) const override;

  std::string url;
};

class OSTREL_API OLBackgroundPush : public OLPushBase {
 public:
  PushNotificationType type() const override { return PushNotificationType::Background; }
  std::string description() const override;
  std::string archiveClassName() const override { return "Ostrel.OLBackgroundPush"; }
  void encode(ArchiveWriter& writer) const override;

  std::shared_ptr<OLSimpleObject> customFields;  // always present
};

class OSTREL_API OLPingPush : public OLPushBase {
 public:
  std::string archiveClassName() const override { return "Ostrel.OLPingPush"; }
};

// How a push reached the user, as the push events record it.
enum class PushReceiveType { standard, background, url, ping };
enum class PushReceiveAction { notified, opened, scheduled, urlShown };
OSTREL_API const char* rawValue(PushReceiveType type);
OSTREL_API const char* rawValue(PushReceiveAction action);
OSTREL_API std::optional<PushReceiveType> pushReceiveTypeFromRaw(const std::string& raw);
OSTREL_API std::optional<PushReceiveAction> pushReceiveActionFromRaw(const std::string& raw);
OSTREL_API PushReceiveType receiveTypeOf(const OLPushBase& push);

class OSTREL_API PushNotificationEventType {
 public:
  PushNotificationEventType(PushReceiveType type, PushReceiveAction action)
      : type(type), action(action) {}
  PushReceiveType type;
  PushReceiveAction action;
};

}  // namespace ostrel
