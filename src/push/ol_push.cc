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
constexpr const char* kTypes[] = {"standard", "background", "url", "ping"};
constexpr const char* kActions[] = {"notified", "opened", "scheduled", "url_shown"};
}  // namespace

const char* rawValue(PushReceiveType type) {
  return kTypes[static_cast<int>(type)];
}
const char* rawValue(PushReceiveAction action) {
  return kActions[static_cast<int>(action)];
}
std::optional<PushReceiveType> pushReceiveTypeFromRaw(const std::string& raw) {
  for (int i = 0; i < 4; ++i) {
    if (raw == kTypes[i]) return static_cast<PushReceiveType>(i);
  }
  return std::nullopt;
}
std::optional<PushReceiveAction> pushReceiveActionFromRaw(const std::string& raw) {
  for (int i = 0; i < 4; ++i) {
    if (raw == kActions[i]) return static_cast<PushReceiveAction>(i);
  }
  return std::nullopt;
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
