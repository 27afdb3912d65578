#include "events/content_events.h"

#include <cmath>

#include "events/float_json.h"
#include "events/grapheme.h"
#include "events/name_rule.h"
#include "events/simple_object_archive.h"

namespace ostrel {

Result<std::shared_ptr<OLRankingContentEvent>> OLRankingContentEvent::make(std::string sessionId,
                                                                           std::string userId,
                                                                           std::string contentId,
                                                                           RankingScope scope,
                                                                           float multiplier) {
  auto e = std::shared_ptr<OLRankingContentEvent>(
      new OLRankingContentEvent("rank content", std::move(sessionId), std::move(userId)));
  e->contentId = std::move(contentId);
  e->scope = scope;
  e->multiplier = multiplier;
  return checked(e);
}

Result<void> OLRankingContentEvent::checkProperties() const {
  if (graphemeCount(contentId) < 3) {
    return eventCreationError("ContentId too short", Json{{"contentId", contentId}});
  }
  if (scope.scope == _RankingScope::unknown) {
    return eventCreationError("Scope must be specified", Json{{"scope", "unknown"}});
  }
  // JSON has no NaN or infinity: such an event could never be sent.
  if (!std::isfinite(multiplier)) {
    return eventCreationError("Multiplier must be a finite number",
                              Json{{"multiplier", std::to_string(multiplier)}});
  }
  return {};
}

Json OLRankingContentEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  d["content_id"] = contentId;
  d["scope"] = scope.rawValue();
  d["multiplier"] = floatJson(multiplier);
  return d;
}

void OLRankingContentEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeString("content_id", contentId);
  w.encodeFloat("multiplier", multiplier);
  w.encodeString("scope", std::string(scope.rawValue()));
}

Result<std::shared_ptr<OLBaseEvent>> OLRankingContentEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLRankingContentEvent>(new OLRankingContentEvent());
  auto content = r.decodeString("content_id");
  auto multiplier = r.decodeFloat("multiplier");
  auto raw = r.decodeString("scope");
  if (!content) return content.error();
  if (!multiplier) return multiplier.error();
  if (!raw) return raw.error();
  auto scope = RankingScope::fromRaw(*raw);
  if (!scope) return archiveError("Unknown stored scope " + *raw);
  e->contentId = std::move(*content);
  e->multiplier = *multiplier;
  e->scope = *scope;
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLAttachSessionEvent>> OLAttachSessionEvent::make(
    std::string sessionId, std::string userId, AttachType attachType, std::string attachedSessionId,
    std::optional<std::string> attachedUserId, std::shared_ptr<OLSimpleObject> customData) {
  auto e = std::shared_ptr<OLAttachSessionEvent>(
      new OLAttachSessionEvent("attached_session", std::move(sessionId), std::move(userId)));
  e->attachType = attachType;
  e->attachedSessionId = std::move(attachedSessionId);
  e->attachedUserId = std::move(attachedUserId);
  e->customData = copyOfBag(customData);
  return checked(e);
}

Result<void> OLAttachSessionEvent::checkProperties() const {
  if (attachType == AttachType::unknown) {
    return eventCreationError("Attached Session type unknown", Json{{"attachType", "unknown"}});
  }
  if (attachedSessionId.empty()) {
    return eventCreationError("Attached Session Identifier cannot be empty",
                              Json{{"attachedSessionId", attachedSessionId}});
  }
  if (attachedUserId && !matchesAttachedUserRule(*attachedUserId)) {
    return eventCreationError(
        "Attached User Identifier is not valid",
        Json{{"attachedUserId", *attachedUserId}, {"pattern", std::string(kUserPattern)}});
  }
  return {};
}

Json OLAttachSessionEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLBaseEvent::getEventDictionary(zone);
  d["attach_session_id"] = attachedSessionId;
  if (attachedUserId) d["attach_user_id"] = *attachedUserId;
  d["attach_session_type"] = rawValue(attachType);
  if (customData) d["custom_data"] = customData->getDictionary();
  return d;
}

void OLAttachSessionEvent::encode(ArchiveWriter& w) const {
  OLBaseEvent::encode(w);
  w.encodeString("attach_session_type", std::string(rawValue(attachType)));
  if (attachedUserId) w.encodeString("attach_user_id", *attachedUserId);
  w.encodeString("attach_session_id", attachedSessionId);
  if (customData) w.encodeObject("custom_data", SimpleObjectArchive(*customData));
}

Result<std::shared_ptr<OLBaseEvent>> OLAttachSessionEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLAttachSessionEvent>(new OLAttachSessionEvent());
  auto raw = r.decodeString("attach_session_type");
  auto session = r.decodeString("attach_session_id");
  if (!raw) return raw.error();
  if (!session) return session.error();
  auto type = attachTypeFromRaw(*raw);
  if (!type) return archiveError("Unknown stored attach type " + *raw);
  e->attachType = *type;
  e->attachedSessionId = std::move(*session);
  if (r.contains("attach_user_id")) {
    auto user = r.decodeString("attach_user_id");
    if (!user) return user.error();
    e->attachedUserId = *user;
  }
  e->customData = decodeSimpleObject(r, "custom_data");
  if (auto ok = decodeBase(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

}  // namespace ostrel
