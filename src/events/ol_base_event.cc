#include "events/ol_base_event.h"

#include <charconv>
#include <cstdio>

#include "core/civil_time.h"
#include "events/name_rule.h"
#include "events/simple_object_archive.h"

namespace ostrel {

OLError eventCreationError(std::string message, std::optional<Json> extra) {
  return OLError::LocalError(LocalErrorCodes::EventCreationError, std::move(message), std::nullopt,
                             std::move(extra));
}

OLBaseEvent::OLBaseEvent(std::string eventType, std::string sessionId, std::string userId)
    : eventType(std::move(eventType)),
      userId(std::move(userId)),
      sessionId_(std::move(sessionId)) {}

std::string OLBaseEvent::formatDate(double secondsSince1970, const platform::Clock& zone) {
  const long offset = utcOffsetAt(zone, secondsSince1970);
  const CivilTime t = civilTimeOf(secondsSince1970, offset);
  char date[64];
  std::snprintf(date, sizeof date, "%04d-%02u-%02uT%02d:%02d:%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  if (offset == 0) return std::string(date) + "Z";
  const long abs = offset < 0 ? -offset : offset;
  char suffix[32];
  std::snprintf(suffix, sizeof suffix, "%c%02ld:%02ld", offset < 0 ? '-' : '+', abs / 3600,
                (abs / 60) % 60);
  return std::string(date) + suffix;
}

Json OLBaseEvent::getEventDictionary(const platform::Clock& zone) const {
  return Json{{"event_type", eventType},
              {"session_id", sessionId_},
              {"creation_date", formatDate(creationDate, zone)},
              {"user_id", userId}};
}

std::string OLBaseEvent::uniqueName() const {
  // "%f" of the creation date; to_chars writes the same digits without the
  // locale and format parsing of printf, on the caller's thread of every event.
  char seconds[400];  // room for any double in fixed notation
  const auto written =
      std::to_chars(seconds, seconds + sizeof seconds, creationDate, std::chars_format::fixed, 6);
  std::string out = std::string(seconds, written.ptr) + "-event-" + eventType;
  std::string cleaned;
  cleaned.reserve(out.size());
  for (char c : out) {
    if (c == '.') continue;
    cleaned.push_back(c == ' ' ? '_' : c);
  }
  return cleaned;
}

void OLBaseEvent::encode(ArchiveWriter& writer) const {
  writer.encodeString("event_type", eventType);
  writer.encodeString("session_id", sessionId_);
  writer.encodeDate("creation_date", creationDate);
  writer.encodeString("user_id", userId);
}

Result<void> OLBaseEvent::decodeBase(const ArchiveReader& reader, OLBaseEvent& event) {
  auto type = reader.decodeString("event_type");
  auto session = reader.decodeString("session_id");
  auto date = reader.decodeDate("creation_date");
  auto user = reader.decodeString("user_id");
  if (!type) return type.error();
  if (!session) return session.error();
  if (!date) return date.error();
  if (!user) return user.error();
  event.eventType = std::move(*type);
  event.sessionId_ = std::move(*session);
  event.creationDate = *date;
  event.userId = std::move(*user);
  return {};
}

OLExternalEvent::OLExternalEvent(std::string name, std::string eventType, std::string sessionId,
                                 std::string userId, std::shared_ptr<OLSimpleObject> customData)
    : OLBaseEvent(std::move(eventType), std::move(sessionId), std::move(userId)),
      name(std::move(name)),
      customData(copyOfBag(customData)) {}

Result<void> OLExternalEvent::checkName(const std::string& name) {
  if (matchesEventNameRule(name)) return {};
  return eventCreationError("Name not matching regex",
                            Json{{"name", name}, {"pattern", std::string(kNamePattern)}});
}

Result<void> OLExternalEvent::checkProperties() const {
  return checkName(name);
}

Json OLExternalEvent::getEventDictionary(const platform::Clock& zone) const {
  Json dictionary = OLBaseEvent::getEventDictionary(zone);
  dictionary["name"] = name;
  if (customData) dictionary["custom_data"] = customData->getDictionary();
  return dictionary;
}

void OLExternalEvent::encode(ArchiveWriter& writer) const {
  OLBaseEvent::encode(writer);
  writer.encodeString("name", name);
  if (customData) writer.encodeObject("custom_data", SimpleObjectArchive(*customData));
}

Result<void> OLExternalEvent::decodeExternal(const ArchiveReader& reader, OLExternalEvent& event) {
  auto name = reader.decodeString("name");
  if (!name) return name.error();
  event.name = std::move(*name);
  event.customData = decodeSimpleObject(reader, "custom_data");
  return decodeBase(reader, event);
}

Result<std::shared_ptr<OLCustomEvent>> OLCustomEvent::make(
    std::string name, std::string sessionId, std::string userId,
    std::shared_ptr<OLSimpleObject> customData) {
  return checked(std::shared_ptr<OLCustomEvent>(
      new OLCustomEvent(std::move(name), "custom event", std::move(sessionId), std::move(userId),
                        std::move(customData))));
}

Result<std::shared_ptr<OLBaseEvent>> OLCustomEvent::decode(const ArchiveReader& reader) {
  auto event = std::shared_ptr<OLCustomEvent>(new OLCustomEvent());
  if (auto ok = decodeExternal(reader, *event); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(event);
}

}  // namespace ostrel
