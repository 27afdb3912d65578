#include "status/session_id.h"

#include "core/ol_utils.h"
#include "transport/hash.h"

namespace ostrel {

SessionId::SessionId(const Platform& platform, double expiration, std::string deviceId)
    : expireSec_(expiration), deviceId_(std::move(deviceId)) {
  reset(platform);
}

void SessionId::reset(const Platform& platform) {
  std::string r = OLUtils::generateRandomString(*platform.crypto, 12);
  std::string value = r + sha1Hex(*platform.crypto, r + deviceId_);
  const double now = platform.clock->now();
  std::lock_guard lock(mutex_);
  lastUpdate_ = now;
  value_ = std::move(value);
}

bool SessionId::isExpired(const Platform& platform) const {
  const double now = platform.clock->now();
  std::lock_guard lock(mutex_);
  return now > lastUpdate_ + expireSec_;
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
