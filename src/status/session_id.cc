#include "status/session_id.h"

#include "core/ol_utils.h"
#include "transport/hash.h"

namespace ostrel {

SessionId::SessionId(PlatformRef platform, double expiration, std::string deviceId)
    : platform_(std::move(platform)), expireSec_(expiration), deviceId_(std::move(deviceId)) {
  reset();
}

void SessionId::reset() {
  std::string r = OLUtils::generateRandomString(*platform_->crypto, 12);
  std::string value = r + sha1Hex(*platform_->crypto, r + deviceId_);
  std::lock_guard lock(mutex_);
  lastUpdate_ = platform_->clock->now();
  value_ = std::move(value);
}

bool SessionId::isExpired() const {
  std::lock_guard lock(mutex_);
  return platform_->clock->now() > lastUpdate_ + expireSec_;
}

std::string SessionId::value() const {
  std::lock_guard lock(mutex_);
  return value_;
}

double SessionId::lastUpdate() const {
  std::lock_guard lock(mutex_);
  return lastUpdate_;
}

void SessionId::setLastUpdate(double secondsSince1970) {
  std::lock_guard lock(mutex_);
  lastUpdate_ = secondsSince1970;
}

}  // namespace ostrel
