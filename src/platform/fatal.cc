#include "platform/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace ostrel {
void fatal(std::string_view message) {
  std::fprintf(stderr, "Ostrel fatal error: %.*s\n", static_cast<int>(message.size()),
               message.data());
  std::fflush(stderr);
  std::abort();
}
}  // namespace ostrel
