#include "platform/runtime.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace ostrel::runtime {
namespace {
std::mutex g_installMutex;
// Never destroyed: the library's threads may still run while the process exits.
// Atomic, because a thread of a component made under the previous platform may
// read it while a new one is installed (a host that starts a second facade).
std::atomic<Platform*> g_platform{nullptr};
}  // namespace

const Platform& current() {
  if (auto* installed = g_platform.load(std::memory_order_acquire)) return *installed;
  std::lock_guard lock(g_installMutex);
  if (!g_platform.load(std::memory_order_relaxed)) {
    g_platform.store(new Platform(Platform::defaults()), std::memory_order_release);
  }
  return *g_platform.load(std::memory_order_relaxed);
}

void install(Platform platform) {
  auto* completed = new Platform(platform.completed());
  std::lock_guard lock(g_installMutex);
  // The platform replaced stays alive: components made before may still use it.
  static auto* retired = new std::vector<Platform*>();
  if (auto* previous = g_platform.load(std::memory_order_relaxed)) retired->push_back(previous);
  g_platform.store(completed, std::memory_order_release);
}

}  // namespace ostrel::runtime

namespace ostrel {
void logLine(std::string_view line) {
  runtime::current().log->write(line);
}
}  // namespace ostrel
