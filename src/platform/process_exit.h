#pragma once
// Work that must run when the process ends normally (a return from main,
// std::exit), such as writing what was accepted but is still in memory. A
// hook runs on the exiting thread; the library's other threads still run.
#include <cstdint>
#include <functional>

namespace ostrel::platform {

// Registers a hook; the answer identifies it for removeExitHook.
uint64_t addExitHook(std::function<void()> hook);
// Unregisters a hook. A hook that is running already finishes: hooks hold
// what they touch weakly.
void removeExitHook(uint64_t id);

}  // namespace ostrel::platform
