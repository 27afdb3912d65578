#pragma once
// The analytics of pushes: each push received or opened, and each attempt to
// register the device's token.
#include <optional>

#include "events/ol_base_event.h"
#include "ostrel/ol_push.h"

namespace ostrel {

class OLPushReceivedEvent : public OLInternalEvent {
 public:
  static Result<std::shared_ptr<OLPushReceivedEvent>> make(std::string pushId,
                                                           PushNotificationEventType pushType,
                                                           bool isLocal, std::string sessionId,
                                                           std::string userId);
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLPushReceivedEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  std::string pushId;
  PushNotificationEventType pushType{PushReceiveType::standard, PushReceiveAction::notified};
  bool isLocal = false;

 private:
  OLPushReceivedEvent() = default;
  using OLInternalEvent::OLInternalEvent;
};

class OLPushRegisteredEvent : public OLInternalEvent {
 public:
  static constexpr std::size_t kMaxReasonLength = 256;
  static Result<std::shared_ptr<OLPushRegisteredEvent>> make(bool succeeded,
                                                             std::optional<std::string> reason,
                                                             std::string sessionId,
                                                             std::string userId);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLPushRegisteredEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  bool succeeded = false;
  std::optional<std::string> reason;

 private:
  OLPushRegisteredEvent() = default;
  using OLInternalEvent::OLInternalEvent;
};

}  // namespace ostrel
