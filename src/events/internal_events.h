#pragma once
// Events the library records on its own: session start, identify, logout and
// the heartbeat of running timers.
#include <vector>

#include "core/device_information.h"
#include "events/ol_base_event.h"
#include "ostrel/event_types.h"

namespace ostrel {

class OLSessionEvent : public OLInternalEvent {
 public:
  static Result<std::shared_ptr<OLSessionEvent>> make(std::string sessionId, std::string userId,
                                                      DeviceInformation deviceInfo,
                                                      bool isFirstStart,
                                                      std::shared_ptr<OLSimpleObject> customData,
                                                      std::optional<std::string> refreshedSession);
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLSessionEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  DeviceInformation deviceInfo;
  bool isFirstStart = false;
  std::shared_ptr<OLSimpleObject> customData;
  std::optional<std::string> refreshedSession;

 private:
  OLSessionEvent() = default;
  using OLInternalEvent::OLInternalEvent;
};

class OLIdentifyEvent : public OLInternalEvent {
 public:
  static Result<std::shared_ptr<OLIdentifyEvent>> make(std::string sessionId, std::string userId,
                                                       std::shared_ptr<OLSimpleObject> customData,
                                                       LoginType loginType);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLIdentifyEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  LoginType loginType = LoginType::unknown;
  std::shared_ptr<OLSimpleObject> customData;

 private:
  OLIdentifyEvent() = default;
  using OLInternalEvent::OLInternalEvent;
};

class OLLogoutEvent : public OLInternalEvent {
 public:
  static Result<std::shared_ptr<OLLogoutEvent>> make(std::string sessionId, std::string userId,
                                                     LogoutType logoutType);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLLogoutEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  LogoutType logoutType = LogoutType::unknown;

 private:
  OLLogoutEvent() = default;
  using OLInternalEvent::OLInternalEvent;
};

class OLTimersHearbeat : public OLInternalEvent {
 public:
  static Result<std::shared_ptr<OLTimersHearbeat>> make(double period,
                                                        std::vector<std::string> timers,
                                                        std::string sessionId, std::string userId);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLTimersHearbeat"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  const std::string name = "heartbeat";
  double period = 0;
  std::vector<std::string> timers;

 private:
  OLTimersHearbeat() = default;
  using OLInternalEvent::OLInternalEvent;
};

}  // namespace ostrel
