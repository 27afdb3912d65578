#include "ostrel/ol_push_builder.h"

#include "platform/platform_ref.h"
#include "push/user_info_parser.h"

namespace ostrel {
namespace {

OLError pushError(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::PushNotificationError, std::move(message),
                             std::nullopt, std::move(extra));
}

// Local pushes are named on this device; the prefix keeps them apart from the
// service's identifiers.
std::string newLocalPushId(const platform::Crypto& crypto) {
  return "local-" + hexString(crypto.randomBytes(8));
}

}  // namespace

OLPushBuilder& OLPushBuilder::setDate(double secondsSince1970) {
  _fireDate = secondsSince1970;
  return *this;
}
OLPushBuilder& OLPushBuilder::setBody(std::string body) {
  _body = std::move(body);
  return *this;
}
OLPushBuilder& OLPushBuilder::setBadgeCounter(int64_t count) {
  _badge = count;
  return *this;
}
OLPushBuilder& OLPushBuilder::setSound(std::string name) {
  _sound = std::move(name);
  return *this;
}
OLPushBuilder& OLPushBuilder::setCustomFields(std::shared_ptr<OLSimpleObject> fields) {
  _customFields = std::move(fields);
  return *this;
}
OLPushBuilder& OLPushBuilder::setUrl(std::string url) {
  _url = std::move(url);
  return *this;
}
OLPushBuilder& OLPushBuilder::setTitle(const std::string&) {
  logLine(*platform_, "Dummy Method for SDK compliance");
  return *this;
}

platform::LocalNotification OLPushBuilder::buildNotification(const std::string& pushId) const {
  platform::LocalNotification n;
  n.identifier = pushId;
  n.fireDate = _fireDate.value_or(platform_->clock->now());
  n.alertBody = _body;
  n.applicationIconBadgeNumber = _badge;
  n.soundName = _sound;
  n.userInfo = Json{{"push_id", pushId}};
  return n;
}

Result<void> OLPushBuilder::scheduleNotification(const platform::LocalNotification& n) {
  if (auto scheduled = platform_->localNotifications->schedule(n); !scheduled) {
    return scheduled.error();
  }
  if (onScheduled_) {
    if (auto push = buildPushObject(n, false)) onScheduled_(**push);
  }
  return {};
}

Result<void> OLPushBuilder::scheduleLocalStandardPush() {
  if (!_body) return pushError("An alert body must be specified");
  auto n = buildNotification(newLocalPushId(*platform_->crypto));
  if (_customFields) n.userInfo["custom_fields"] = _customFields->getDictionary();
  return scheduleNotification(n);
}

Result<void> OLPushBuilder::checkUrlRequirements() const {
  if (!_url) return pushError("An url must be specified");
  if (!_body) return pushError("An alert body must be specified");
  return {};
}

Result<void> OLPushBuilder::scheduleLocalUrlPush() {
  if (auto ok = checkUrlRequirements(); !ok) return ok.error();
  auto n = buildNotification(newLocalPushId(*platform_->crypto));
  n.userInfo["url"] = *_url;
  return scheduleNotification(n);
}

Result<void> OLPushBuilder::scheduleLocalBackgroundPush() {
  return pushError("Local push cannot be silent");
}

Result<std::shared_ptr<OLPushBase>> OLPushBuilder::buildPushObject(const Json& userInfo,
                                                                   bool isAtStartup) {
  return buildPushObjectFromUserInfo(userInfo, isAtStartup);
}

Result<std::shared_ptr<OLPushBase>> OLPushBuilder::buildPushObject(std::string_view text,
                                                                   bool isAtStartup) {
  auto parsed = parseJson(text);
  if (!parsed || !parsed->is_object()) {
    return pushError("Unrecognized User Info Dictionary",
                     Json{{"userInfo", parsed ? dumpJson(*parsed) : std::string(text)}});
  }
  return buildPushObjectFromUserInfo(*parsed, isAtStartup);
}

Result<std::shared_ptr<OLPushBase>> OLPushBuilder::buildPushObject(
    const platform::LocalNotification& n, bool isAtStartup) {
  const Json& info = n.userInfo;
  auto id = info.is_object() ? info.find("push_id") : info.end();
  if (!info.is_object() || id == info.end() || !id->is_string()) {
    return pushError("Local notification not sent by Ostrel", Json{{"userInfo", info}});
  }
  std::shared_ptr<OLStandardPush> push;
  auto url = info.find("url");
  if (url != info.end() && url->is_string()) {
    auto urlPush = std::make_shared<OLUrlPush>();
    urlPush->url = url->get<std::string>();
    push = urlPush;
  } else {
    push = std::make_shared<OLStandardPush>();
    auto custom = info.find("custom_fields");
    if (custom != info.end() && custom->is_object()) {
      push->customFields = OLSimpleObject::fromDictionary(*custom);
    }
  }
  push->pushId = id->get<std::string>();
  push->body = n.alertBody.value_or("");
  push->badge = n.applicationIconBadgeNumber;
  push->sound = n.soundName;
  push->shown = isAtStartup;
  push->isLocal = true;
  return std::shared_ptr<OLPushBase>(push);
}

}  // namespace ostrel
