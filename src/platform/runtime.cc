#include "platform/runtime.h"

#include <memory>
#include <mutex>

namespace ostrel::runtime {
namespace {
std::once_flag g_defaultOnce;
std::unique_ptr<Platform> g_platform;
}  // namespace

const Platform& current() {
  std::call_once(g_defaultOnce, [] {
    if (!g_platform) g_platform = std::make_unique<Platform>(Platform::defaults());
  });
  return *g_platform;
}

void install(Platform platform) {
  auto completed = std::make_unique<Platform>(platform.completed());
  std::call_once(g_defaultOnce, [] {});
  g_platform = std::move(completed);
}

}  // namespace ostrel::runtime

namespace ostrel {
void logLine(std::string_view line) {
  runtime::current().log->write(line);
}
}  // namespace ostrel
