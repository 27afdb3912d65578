#pragma once
// How a component reaches the platform it was built with. Its owner (the
// facade, or a test) completes one Platform and hands the same shared bundle to
// every component it builds. A component keeps its reference, so that work still
// queued on a scheduler or network thread finds the services alive after the
// owner has gone; two facades on two platforms share none of them.
#include <memory>
#include <string_view>

#include "ostrel/platform.h"

namespace ostrel {

using PlatformRef = std::shared_ptr<const Platform>;

// Prints one console line through the platform's log sink.
inline void logLine(const Platform& platform, std::string_view line) {
  platform.log->write(line);
}

}  // namespace ostrel
