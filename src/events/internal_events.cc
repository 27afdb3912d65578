#include "events/internal_events.h"

#include "events/simple_object_archive.h"

namespace ostrel {

Result<std::shared_ptr<OLSessionEvent>> OLSessionEvent::make(
    std::string sessionId, std::string userId, DeviceInformation deviceInfo, bool isFirstStart,
    std::shared_ptr<OLSimpleObject> customData, std::optional<std::string> refreshedSession) {
  auto e = std::shared_ptr<OLSessionEvent>(
      new OLSessionEvent("start session", std::move(sessionId), std::move(userId)));
  e->deviceInfo = std::move(deviceInfo);
  e->isFirstStart = isFirstStart;
  e->customData = copyOfBag(customData);
  e->refreshedSession = std::move(refreshedSession);
  return checked(e);
}

Json OLSessionEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  const Json device = deviceInfo.getDeviceInformationDictionary();
  for (const auto& [key, value] : device.items()) d[key] = value;
  d["app_installed"] = isFirstStart;
  if (customData) d["custom_data"] = customData->getDictionary();
  if (refreshedSession) d["refreshed_session"] = *refreshedSession;
  return d;
}

void OLSessionEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeJson("device_info", deviceInfo.getDeviceInformationDictionary());
  w.encodeBool("app_installed", isFirstStart);
  if (customData) w.encodeObject("custom_data", SimpleObjectArchive(*customData));
  if (refreshedSession) w.encodeString("refreshed_session", *refreshedSession);
}

Result<std::shared_ptr<OLBaseEvent>> OLSessionEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLSessionEvent>(new OLSessionEvent());
  auto device = r.decodeJson("device_info");
  auto installed = r.decodeBool("app_installed");
  if (!device) return device.error();
  if (!installed) return installed.error();
  e->deviceInfo = DeviceInformation::fromDictionary(*device);
  e->isFirstStart = *installed;
  e->customData = decodeSimpleObject(r, "custom_data");
  if (r.contains("refreshed_session")) {
    auto refreshed = r.decodeString("refreshed_session");
    if (!refreshed) return refreshed.error();
    e->refreshedSession = *refreshed;
  }
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLIdentifyEvent>> OLIdentifyEvent::make(
    std::string sessionId, std::string userId, std::shared_ptr<OLSimpleObject> customData,
    LoginType loginType) {
  auto e = std::shared_ptr<OLIdentifyEvent>(
      new OLIdentifyEvent("identify", std::move(sessionId), std::move(userId)));
  e->customData = copyOfBag(customData);
  e->loginType = loginType;
  return checked(e);
}

Result<void> OLIdentifyEvent::checkProperties() const {
  if (loginType != LoginType::unknown) return {};
  return eventCreationError("Identify event must have a known login Type",
                            Json{{"loginType", "unknown"}});
}

Json OLIdentifyEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  if (customData) d["custom_data"] = customData->getDictionary();
  d["login_type"] = rawValue(loginType);
  return d;
}

void OLIdentifyEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  if (customData) w.encodeObject("custom_data", SimpleObjectArchive(*customData));
  w.encodeString("login_type", std::string(rawValue(loginType)));
}

Result<std::shared_ptr<OLBaseEvent>> OLIdentifyEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLIdentifyEvent>(new OLIdentifyEvent());
  auto raw = r.decodeString("login_type");
  if (!raw) return raw.error();
  auto type = loginTypeFromRaw(*raw);
  if (!type) return archiveError("Unknown stored login type " + *raw);
  e->loginType = *type;
  e->customData = decodeSimpleObject(r, "custom_data");
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLLogoutEvent>> OLLogoutEvent::make(std::string sessionId,
                                                           std::string userId,
                                                           LogoutType logoutType) {
  auto e = std::shared_ptr<OLLogoutEvent>(
      new OLLogoutEvent("logout", std::move(sessionId), std::move(userId)));
  e->logoutType = logoutType;
  return checked(e);
}

Result<void> OLLogoutEvent::checkProperties() const {
  if (logoutType != LogoutType::unknown) return {};
  // The wording begins "Identify event" for logouts too.
  return eventCreationError("Identify event must have a known logout Type",
                            Json{{"logoutType", "unknown"}});
}

Json OLLogoutEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  // The logout kind shares the identify event's wire key.
  d["login_type"] = rawValue(logoutType);
  return d;
}

void OLLogoutEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeString("logout_type", std::string(rawValue(logoutType)));
}

Result<std::shared_ptr<OLBaseEvent>> OLLogoutEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLLogoutEvent>(new OLLogoutEvent());
  auto raw = r.decodeString("logout_type");
  if (!raw) return raw.error();
  auto type = logoutTypeFromRaw(*raw);
  if (!type) return archiveError("Unknown stored logout type " + *raw);
  e->logoutType = *type;
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLTimersHearbeat>> OLTimersHearbeat::make(double period,
                                                                 std::vector<std::string> timers,
                                                                 std::string sessionId,
                                                                 std::string userId) {
  auto e = std::shared_ptr<OLTimersHearbeat>(
      new OLTimersHearbeat("timer heartbeat", std::move(sessionId), std::move(userId)));
  e->period = period;
  e->timers = std::move(timers);
  return checked(e);
}

Result<void> OLTimersHearbeat::checkProperties() const {
  if (!timers.empty()) return {};
  return eventCreationError("There must be at least one timer");
}

Json OLTimersHearbeat::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  d["name"] = name;
  d["period"] = period;
  d["timers"] = timers;
  return d;
}

void OLTimersHearbeat::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeDouble("period", period);
  w.encodeStrings("timers", timers);
}

Result<std::shared_ptr<OLBaseEvent>> OLTimersHearbeat::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLTimersHearbeat>(new OLTimersHearbeat());
  auto period = r.decodeDouble("period");
  auto timers = r.decodeStrings("timers");
  if (!period) return period.error();
  if (!timers) return timers.error();
  e->period = *period;
  e->timers = std::move(*timers);
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

}  // namespace ostrel
