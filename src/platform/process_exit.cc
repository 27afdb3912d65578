#include "platform/process_exit.h"

#include <cstdlib>
#include <map>
#include <mutex>

namespace ostrel::platform {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<uint64_t, std::function<void()>> hooks;
  uint64_t next = 1;
  bool registered = false;
};

// Never destroyed: it must outlive every static destructor that could remove a hook.
Registry& registry() {
  static auto* r = new Registry();
  return *r;
}

void runHooks() {
  auto& r = registry();
  std::map<uint64_t, std::function<void()>> hooks;
  {
    std::lock_guard lock(r.mutex);
    hooks.swap(r.hooks);
  }
  for (auto& [id, hook] : hooks) hook();
}

}  // namespace

uint64_t addExitHook(std::function<void()> hook) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  if (!r.registered) {
    r.registered = true;
    std::atexit(runHooks);
  }
  const uint64_t id = r.next++;
  r.hooks.emplace(id, std::move(hook));
  return id;
}

void removeExitHook(uint64_t id) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  r.hooks.erase(id);
}

}  // namespace ostrel::platform
