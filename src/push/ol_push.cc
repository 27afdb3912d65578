#include "ostrel/ol_push.h"

#include "archive/keyed_archive.h"
#include "events/simple_object_archive.h"

namespace ostrel {
namespace {

std::string flag(bool value) {
  return value ? "true" : "false";
}
std::string fieldsText(const std::shared_ptr<OLSimpleObject>& fields) {
  return fields ? dumpJson(fields->getDictionary()) : "nil";
}

}  // namespace

std::string OLPushBase::description() const {
  return "Push ID: " + pushId + ", at startup: " + flag(shown) + ", local: " + flag(isLocal);
}

void OLPushBase::encode(ArchiveWriter& w) const {
  w.encodeString("push_id", pushId);
  w.encodeBool("shown", shown);
  w.encodeBool("is_local", isLocal);
}

std::string OLStandardPush::description() const {
  return OLPushBase::description() + ", body: " + body + ", sound: " + sound.value_or("nil") +
         ", badge: " + (badge ? std::to_string(*badge) : "nil") +
         ", custom fields: " + fieldsText(customFields);
}

void OLStandardPush::encode(ArchiveWriter& w) const {
  OLPushBase::encode(w);
  w.encodeString("body", body);
  if (badge) w.encodeInt("badge", *badge);
  if (sound) w.encodeString("sound", *sound);
  if (customFields) w.encodeObject("custom_fields", SimpleObjectArchive(*customFields));
}

std::string OLUrlPush::description() const {
  return OLStandardPush::description() + ", RichURL: " + url;
}

void OLUrlPush::encode(ArchiveWriter& w) const {
  OLStandardPush::encode(w);
  w.encodeString("url", url);
}

std::string OLBackgroundPush::description() const {
  return OLPushBase::description() + ", custom fields: " + fieldsText(customFields);
}

void OLBackgroundPush::encode(ArchiveWriter& w) const {
  OLPushBase::encode(w);
  if (customFields) w.encodeObject("custom_fields", SimpleObjectArchive(*customFields));
}

namespace {
constexpr const char* kNotificationTypes[] = {"Standard", "Url", "Background", "Ping"};
constexpr const char* kTypes[] = {"standard", "background", "url", "ping"};
constexpr const char* kActions[] = {"notified", "opened", "scheduled", "url_shown"};

// The case whose text is `raw`; the texts are in declaration order.
template <class Enum, std::size_t N>
std::optional<Enum> fromRaw(const char* const (&texts)[N], const std::string& raw) {
  for (std::size_t i = 0; i < N; ++i) {
    if (raw == texts[i]) return static_cast<Enum>(i);
  }
  return std::nullopt;
}
}  // namespace

const char* rawValue(PushNotificationType type) {
  return kNotificationTypes[static_cast<int>(type)];
}
const char* rawValue(PushReceiveType type) {
  return kTypes[static_cast<int>(type)];
}
const char* rawValue(PushReceiveAction action) {
  return kActions[static_cast<int>(action)];
}
std::optional<PushNotificationType> pushNotificationTypeFromRaw(const std::string& raw) {
  return fromRaw<PushNotificationType>(kNotificationTypes, raw);
}
std::optional<PushReceiveType> pushReceiveTypeFromRaw(const std::string& raw) {
  return fromRaw<PushReceiveType>(kTypes, raw);
}
std::optional<PushReceiveAction> pushReceiveActionFromRaw(const std::string& raw) {
  return fromRaw<PushReceiveAction>(kActions, raw);
}

PushReceiveType receiveTypeOf(const OLPushBase& push) {
  switch (push.type()) {
    case PushNotificationType::Standard:
      return PushReceiveType::standard;
    case PushNotificationType::Url:
      return PushReceiveType::url;
    case PushNotificationType::Background:
      return PushReceiveType::background;
    case PushNotificationType::Ping:
      break;
  }
  return PushReceiveType::ping;
}

}  // namespace ostrel
