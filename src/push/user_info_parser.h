#pragma once
// Reads the fields of a remote push payload (the notification's user
// information: "aps" with "t", "alert", "sound", "badge", "content-available",
// and top-level "push_id", "custom", "url").
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/ol_push.h"
#include "ostrel/result.h"

namespace ostrel {

class UserInfoParser {
 public:
  // `userInfo` must be a JSON object.
  explicit UserInfoParser(Json userInfo) : userInfo_(std::move(userInfo)) {}

  Result<PushNotificationType> getType() const;
  Result<std::string> getPushId() const;
  Result<std::optional<std::string>> getBody() const;
  Result<std::optional<std::string>> getSound() const;
  Result<std::optional<int64_t>> getBadge() const;
  std::shared_ptr<OLSimpleObject> getCustomFields() const;
  Result<std::string> getUrl() const;

  // Every failure of a payload: PushNotificationError carrying the payload.
  static OLError failure(std::string message, const Json& userInfo);

 private:
  const Json* aps() const;
  OLError fail(std::string message) const { return failure(std::move(message), userInfo_); }

  Json userInfo_;
};

// A remote payload as a push object; `isAtStartup` when it launched the app.
Result<std::shared_ptr<OLPushBase>> buildPushObjectFromUserInfo(const Json& userInfo,
                                                                bool isAtStartup);

}  // namespace ostrel
