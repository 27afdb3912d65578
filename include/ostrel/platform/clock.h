#pragma once

#include "ostrel/export.h"

namespace ostrel::platform {

// Wall-clock time as seconds since 1970-01-01 UTC, with sub-second precision.
// Tests hand a controllable clock.
class OSTREL_API Clock {
 public:
  virtual ~Clock() = default;
  virtual double now() const = 0;
};

}  // namespace ostrel::platform
