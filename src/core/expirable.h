#pragma once
#include "ostrel/platform.h"

namespace ostrel {

// Something that stops being valid after a while: tokens, meta info, the
// session. Judged on the clock of the platform of whoever asks, whose log
// also takes what the judgement prints.
class Expirable {
 public:
  virtual ~Expirable() = default;
  virtual bool isExpired(const Platform& platform) const = 0;
};

}  // namespace ostrel
