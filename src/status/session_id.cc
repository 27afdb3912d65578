#include "status/session_id.h"

#include "core/ol_utils.h"
#include "platform/runtime.h"
#include "transport/hash.h"

namespace ostrel {

SessionId::SessionId(double expiration, std::string deviceId)
    : expireSec_(expiration), deviceId_(std::move(deviceId)) {
  reset();
}

void SessionId::reset() {
  std::string r = OLUtils::generateRandomString(12);
  std::string value = r + sha1Hex(r + deviceId_);
  std::lock_guard lock(mutex_);
  lastUpdate_ = runtime::now();
  value_ = std::move(value);
}

bool SessionId::isExpired() const {
  std::lock_guard lock(mutex_);
  return runtime::now() > lastUpdate_ + expireSec_;
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
