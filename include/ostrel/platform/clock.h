#pragma once

namespace ostrel::platform {

// Wall-clock time as seconds since 1970-01-01 UTC, with sub-second precision.
// Tests hand a controllable clock.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual double now() const = 0;
};

}  // namespace ostrel::platform
