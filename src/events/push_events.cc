#include "events/push_events.h"

#include "archive/keyed_archive.h"
#include "events/grapheme.h"

namespace ostrel {

Result<std::shared_ptr<OLPushReceivedEvent>> OLPushReceivedEvent::make(
    std::string pushId, PushNotificationEventType pushType, bool isLocal, std::string sessionId,
    std::string userId) {
  auto e = std::shared_ptr<OLPushReceivedEvent>(
      new OLPushReceivedEvent("push received", std::move(sessionId), std::move(userId)));
  e->pushId = std::move(pushId);
  e->pushType = pushType;
  e->isLocal = isLocal;
  return checked(e);
}

Json OLPushReceivedEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  d["push_id"] = pushId;
  d["push_type"] = rawValue(pushType.type);
  d["push_action"] = rawValue(pushType.action);
  d["is_local"] = isLocal;
  return d;
}

void OLPushReceivedEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeString("push_id", pushId);
  w.encodeString("push_type", rawValue(pushType.type));
  w.encodeString("push_action", rawValue(pushType.action));
  w.encodeBool("is_local", isLocal);
}

Result<std::shared_ptr<OLBaseEvent>> OLPushReceivedEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLPushReceivedEvent>(new OLPushReceivedEvent());
  auto id = r.decodeString("push_id");
  auto type = r.decodeString("push_type");
  auto action = r.decodeString("push_action");
  auto local = r.decodeBool("is_local");
  if (!id) return id.error();
  if (!type) return type.error();
  if (!action) return action.error();
  if (!local) return local.error();
  auto t = pushReceiveTypeFromRaw(*type);
  auto a = pushReceiveActionFromRaw(*action);
  if (!t || !a) return archiveError("Unknown stored push type " + *type + "/" + *action);
  e->pushId = *id;
  e->pushType = PushNotificationEventType(*t, *a);
  e->isLocal = *local;
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLPushRegisteredEvent>> OLPushRegisteredEvent::make(
    bool succeeded, std::optional<std::string> reason, std::string sessionId, std::string userId) {
  auto e = std::shared_ptr<OLPushRegisteredEvent>(
      new OLPushRegisteredEvent("push registered", std::move(sessionId), std::move(userId)));
  e->succeeded = succeeded;
  e->reason = std::move(reason);
  return checked(e);
}

Result<void> OLPushRegisteredEvent::checkProperties() const {
  if (!reason || graphemeCount(*reason) <= kMaxReasonLength) return {};
  return eventCreationError("reason string too long",
                            Json{{"reason", *reason}, {"maxLength", kMaxReasonLength}});
}

Json OLPushRegisteredEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  d["succeeded"] = succeeded;
  if (reason) d["reason"] = *reason;
  return d;
}

void OLPushRegisteredEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeBool("succeeded", succeeded);
  if (reason) w.encodeString("reason", *reason);
}

Result<std::shared_ptr<OLBaseEvent>> OLPushRegisteredEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLPushRegisteredEvent>(new OLPushRegisteredEvent());
  auto succeeded = r.decodeBool("succeeded");
  if (!succeeded) return succeeded.error();
  e->succeeded = *succeeded;
  if (r.contains("reason")) {
    auto reason = r.decodeString("reason");
    if (!reason) return reason.error();
    e->reason = *reason;
  }
  if (auto ok = e->checkProperties(); !ok) return ok.error();
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

}  // namespace ostrel
