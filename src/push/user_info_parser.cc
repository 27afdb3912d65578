#include "push/user_info_parser.h"

#include "push/uri_syntax.h"

namespace ostrel {
namespace {

const Json* member(const Json& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}
std::optional<std::string> stringMember(const Json& object, const char* key) {
  const Json* value = member(object, key);
  if (!value || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

}  // namespace

OLError UserInfoParser::failure(std::string message, const Json& userInfo) {
  return OLError::LocalError(LocalErrorCodes::PushNotificationError, std::move(message),
                             std::nullopt, Json{{"userInfo", userInfo}});
}

const Json* UserInfoParser::aps() const {
  const Json* aps = member(userInfo_, "aps");
  return aps && aps->is_object() ? aps : nullptr;
}

Result<PushNotificationType> UserInfoParser::getType() const {
  const Json* a = aps();
  if (!a) return fail("Type not recognized in aps");
  auto t = stringMember(*a, "t");
  if (!t) return fail("Push Type not recognized");
  if (*t == "N") return PushNotificationType::Standard;
  if (*t == "U") {
    if (!stringMember(userInfo_, "url")) return fail("Push URL not recognized");
    if (getCustomFields()) return fail("Bad configured URL Push. custom fields must be nil");
    return PushNotificationType::Url;
  }
  if (*t == "B") {
    const Json* available = member(*a, "content-available");
    if (!available || !available->is_number_integer() || available->get<int64_t>() != 1) {
      return fail("Bad configured Background Push. Missing content-available");
    }
    auto body = getBody();
    if (!body) return body.error();
    if (*body) return fail("Bad configured Background Push. Push Body must be null");
    auto sound = getSound();
    if (!sound) return sound.error();
    if (*sound) return fail("Bad configured Background Push. Push Sound must be null");
    auto badge = getBadge();
    if (!badge) return badge.error();
    if (*badge) return fail("Bad configured Background Push. Push Badge must be null");
    return PushNotificationType::Background;
  }
  if (*t == "P") return PushNotificationType::Ping;
  return fail("Push Type not recognized");
}

Result<std::string> UserInfoParser::getPushId() const {
  auto id = stringMember(userInfo_, "push_id");
  if (!id) return fail("Push ID not recognized");
  return *id;
}

Result<std::optional<std::string>> UserInfoParser::getBody() const {
  const Json* a = aps();
  if (!a) return fail("Body not recognized in aps");
  const Json* alert = member(*a, "alert");
  if (!alert) return std::optional<std::string>();
  if (alert->is_string()) return std::optional<std::string>(alert->get<std::string>());
  if (alert->is_object()) return stringMember(*alert, "body");
  return std::optional<std::string>();
}

Result<std::optional<std::string>> UserInfoParser::getSound() const {
  const Json* a = aps();
  if (!a) return fail("Sound not recognized in aps");
  return stringMember(*a, "sound");
}

Result<std::optional<int64_t>> UserInfoParser::getBadge() const {
  const Json* a = aps();
  if (!a) return fail("Badge not recognized in aps");
  const Json* badge = member(*a, "badge");
  if (!badge || !badge->is_number_integer()) return std::optional<int64_t>();
  // A badge beyond 64 bits is not a badge.
  if (badge->is_number_unsigned() && badge->get<uint64_t>() > INT64_MAX) {
    return std::optional<int64_t>();
  }
  return std::optional<int64_t>(badge->get<int64_t>());
}

std::shared_ptr<OLSimpleObject> UserInfoParser::getCustomFields() const {
  const Json* custom = member(userInfo_, "custom");
  if (!custom || !custom->is_object()) return nullptr;
  return OLSimpleObject::fromDictionary(*custom);
}

Result<std::string> UserInfoParser::getUrl() const {
  const Json* url = member(userInfo_, "url");
  const std::string text =
      url ? (url->is_string() ? url->get<std::string>() : dumpJson(*url)) : std::string("nil");
  if (!url || !url->is_string()) return fail("Url not recognized " + text);
  // Only web pages: a URI (RFC 3986) whose scheme is compared as written.
  const auto scheme = uriScheme(text);
  if (!scheme || (*scheme != "http" && *scheme != "https")) {
    return fail("Url not recognized " + text);
  }
  return text;
}

namespace {

template <class Push>
Result<std::shared_ptr<Push>> standardFields(const UserInfoParser& parser, const Json& userInfo) {
  auto id = parser.getPushId();
  if (!id) return id.error();
  auto body = parser.getBody();
  if (!body) return body.error();
  // A notification shows its body: without one the payload is refused, like
  // any other malformed payload (it comes from outside the app).
  if (!*body) return UserInfoParser::failure("Body not recognized in aps", userInfo);
  auto badge = parser.getBadge();
  if (!badge) return badge.error();
  auto sound = parser.getSound();
  if (!sound) return sound.error();
  auto push = std::make_shared<Push>();
  push->pushId = *id;
  push->body = **body;
  push->badge = *badge;
  push->sound = *sound;
  return push;
}

}  // namespace

Result<std::shared_ptr<OLPushBase>> buildPushObjectFromUserInfo(const Json& userInfo,
                                                                bool isAtStartup) {
  if (!userInfo.is_object()) {
    return UserInfoParser::failure("Unrecognized User Info Dictionary", dumpJson(userInfo));
  }
  UserInfoParser parser(userInfo);
  auto type = parser.getType();
  if (!type) return type.error();
  std::shared_ptr<OLPushBase> push;
  switch (*type) {
    case PushNotificationType::Standard: {
      auto standard = standardFields<OLStandardPush>(parser, userInfo);
      if (!standard) return standard.error();
      (*standard)->customFields = parser.getCustomFields();
      push = *standard;
      break;
    }
    case PushNotificationType::Url: {
      auto url = standardFields<OLUrlPush>(parser, userInfo);
      if (!url) return url.error();
      auto address = parser.getUrl();
      if (!address) return address.error();
      (*url)->url = *address;
      push = *url;
      break;
    }
    case PushNotificationType::Background: {
      auto fields = parser.getCustomFields();
      if (!fields) return UserInfoParser::failure("Unrecognized Push Type", userInfo);
      auto id = parser.getPushId();
      if (!id) return id.error();
      auto background = std::make_shared<OLBackgroundPush>();
      background->pushId = *id;
      background->customFields = std::move(fields);
      push = background;
      break;
    }
    case PushNotificationType::Ping: {
      auto id = parser.getPushId();
      if (!id) return id.error();
      push = std::make_shared<OLPingPush>();
      push->pushId = *id;
      break;
    }
  }
  push->shown = isAtStartup;
  push->isLocal = false;
  return push;
}

}  // namespace ostrel
