#pragma once

namespace ostrel {

// Something that stops being valid after a while: tokens, meta info, the session.
class Expirable {
 public:
  virtual ~Expirable() = default;
  virtual bool isExpired() const = 0;
};

}  // namespace ostrel
