#pragma once
// The analytics session identifier: 12 random printable characters followed by
// the SHA-1 (hex) of those characters and the device identifier. Never stored:
// every start of the library makes a new one.
#include <mutex>
#include <string>

#include "core/expirable.h"

namespace ostrel {

class SessionId : public Expirable {
 public:
  SessionId(const Platform& platform, double expiration, std::string deviceId);

  // Starts a new session now.
  void reset(const Platform& platform);
  // True when now is strictly later than lastUpdate + expireSec.
  bool isExpired(const Platform& platform) const override;

  std::string value() const;
  double lastUpdate() const;
  void setLastUpdate(double secondsSince1970);
  double expireSec() const { return expireSec_; }
  const std::string& deviceId() const { return deviceId_; }

 private:
  mutable std::mutex mutex_;
  std::string value_;
  double lastUpdate_ = 0;
  double expireSec_;
  std::string deviceId_;
};

}  // namespace ostrel
