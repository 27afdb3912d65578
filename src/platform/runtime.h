#pragma once
// The platform services of the running library, reachable from every layer.
// The facade installs its Platform once at start; tests install fakes before
// they build components. Installing while components run is not supported.
#include <string_view>

#include "ostrel/platform.h"
#include "platform/platform_ref.h"

namespace ostrel::runtime {

// The installed platform; the defaults are installed on first use when none was.
const Platform& current();
// Installs a platform, completing its empty members with the defaults.
void install(Platform platform);

// The installed platform as a component's reference; it is never destroyed, so
// the reference owns nothing.
inline PlatformRef shared() {
  return PlatformRef(std::shared_ptr<const Platform>(), &current());
}

inline double now() {
  return current().clock->now();
}
inline platform::FileSystem& files() {
  return *current().files;
}
inline const platform::Crypto& crypto() {
  return *current().crypto;
}
inline platform::KeyValueStore& settings() {
  return *current().settings;
}
inline platform::Scheduler& scheduler() {
  return *current().scheduler;
}
inline platform::HttpClient& http() {
  return *current().http;
}
inline platform::ReceiptSource& receipts() {
  return *current().receipts;
}
inline const Deployment& deployment() {
  return current().deployment;
}

}  // namespace ostrel::runtime

namespace ostrel {
// Prints one console line through the installed log sink.
void logLine(std::string_view line);
}  // namespace ostrel
