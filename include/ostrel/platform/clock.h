#pragma once

#include "ostrel/export.h"

namespace ostrel::platform {

// Wall-clock time as seconds since 1970-01-01 UTC, with sub-second precision,
// and the local time zone the library writes dates in. Tests hand a
// controllable clock. Called from any of the library's threads.
class OSTREL_API Clock {
 public:
  virtual ~Clock() = default;
  virtual double now() const = 0;
  // Seconds east of UTC of the local time zone at the given instant (summer
  // time included): +3600 in Rome in winter, -12600 in St. John's in summer.
  // The default follows the process's time zone (TZ, else /etc/localtime); a
  // host whose device has its own zone setting, or a test that wants a fixed
  // zone, overrides it.
  virtual long utcOffsetSecs(double secondsSince1970) const;
};

}  // namespace ostrel::platform
