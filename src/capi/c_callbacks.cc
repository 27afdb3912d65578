#include "capi/c_callbacks.h"

#include <atomic>
#include <memory>
#include <utility>

#include "capi/c_error.h"

namespace ostrel::capi {
namespace {

// Handed over when the error itself cannot be built, so that a failure never
// reaches the host as a success.
const ostrel_error kOutOfMemory = cApiError("OutOfMemory", "memory ran out");

// Shared by the copies the library may make of a callback.
struct Once {
  Once(ostrel_result_fn f, void* d) : fn(f), userData(d) {}
  bool take() { return !done.exchange(true); }
  ostrel_result_fn fn;
  void* userData;
  std::atomic<bool> done{false};
};

}  // namespace

void deliver(ostrel_result_fn fn, void* userData, const std::optional<OLError>& error,
             const char* result) noexcept {
  if (!fn) return;
  if (!error) return fn(nullptr, result, userData);
  std::optional<ostrel_error> converted;
  try {
    converted = errorFrom(*error);
  } catch (...) {
    return fn(&kOutOfMemory, result, userData);
  }
  fn(&*converted, result, userData);
}

ErrorCallback errorCallback(ostrel_result_fn fn, void* userData) {
  auto once = std::make_shared<Once>(fn, userData);
  return [once](std::optional<OLError> error) {
    if (once->take()) deliver(once->fn, once->userData, error, nullptr);
  };
}

DictionaryCallback jsonCallback(ostrel_result_fn fn, void* userData) {
  auto once = std::make_shared<Once>(fn, userData);
  return [once](std::optional<OLError> error, std::optional<Json> result) {
    if (!once->take()) return;
    std::string text;
    try {
      if (result && !result->is_null()) text = dumpJson(*result);
    } catch (...) {
      if (once->fn) once->fn(&kOutOfMemory, nullptr, once->userData);
      return;
    }
    deliver(once->fn, once->userData, error, text.empty() ? nullptr : text.c_str());
  };
}

TokenCallback textCallback(ostrel_result_fn fn, void* userData) {
  auto once = std::make_shared<Once>(fn, userData);
  return [once](std::optional<OLError> error, std::optional<std::string> result) {
    if (once->take()) deliver(once->fn, once->userData, error, result ? result->c_str() : nullptr);
  };
}

}  // namespace ostrel::capi
