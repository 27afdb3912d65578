#include <chrono>
#include <cmath>
#include <ctime>

#include "platform/defaults.h"

namespace ostrel::platform {

long Clock::utcOffsetSecs(double secondsSince1970) const {
  // Beyond any time_t (or not a number): no zone rule applies.
  if (!std::isfinite(secondsSince1970) || std::fabs(secondsSince1970) > 1e15) return 0;
  const auto t = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm tm{};
  if (localtime_r(&t, &tm) == nullptr) return 0;  // out of the zone database's range
  return tm.tm_gmtoff;
}

namespace {
class SystemClock final : public Clock {
 public:
  double now() const override {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
  }
};
}  // namespace

std::shared_ptr<Clock> makeSystemClock() {
  return std::make_shared<SystemClock>();
}
}  // namespace ostrel::platform
