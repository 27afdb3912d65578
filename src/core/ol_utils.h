#pragma once
#include <array>
#include <string>
#include <string_view>

#include "ostrel/platform/crypto.h"

namespace ostrel {

class OLUtils {
 public:
  // The 94 printable characters "!" (33) to "~" (126), in ascending order.
  static const std::array<std::string_view, 94>& charset();
  // `length` characters drawn uniformly and independently from the charset
  // with the platform's secure random source. A negative length is fatal.
  static std::string generateRandomString(const platform::Crypto& crypto, int length);
};

}  // namespace ostrel
