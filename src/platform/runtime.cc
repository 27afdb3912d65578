#include "platform/runtime.h"

#include <memory>
#include <mutex>
#include <vector>

namespace ostrel::runtime {
namespace {
std::once_flag g_defaultOnce;
// Never destroyed: the library's threads may still run while the process exits.
Platform* g_platform = nullptr;
}  // namespace

const Platform& current() {
  std::call_once(g_defaultOnce, [] {
    if (!g_platform) g_platform = new Platform(Platform::defaults());
  });
  return *g_platform;
}

void install(Platform platform) {
  auto* completed = new Platform(platform.completed());
  std::call_once(g_defaultOnce, [] {});
  // The platform replaced stays alive: components made before may still use it.
  static auto* retired = new std::vector<Platform*>();
  if (g_platform) retired->push_back(g_platform);
  g_platform = completed;
}

}  // namespace ostrel::runtime

namespace ostrel {
void logLine(std::string_view line) {
  runtime::current().log->write(line);
}
}  // namespace ostrel
