#pragma once
// The C API's error object and the guard every C entry point runs its body
// in, so that no C++ exception reaches a C caller.
#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <string>

#include "ostrel/ol_error.h"
#include "ostrel/ostrel_c.h"

struct ostrel_error {
  ostrel_error_kind_t kind = OSTREL_ERROR_KIND_C_API;
  std::string code;
  std::string message;
  std::string description;
  std::optional<int64_t> status;
  std::optional<std::string> extraJson;
};

namespace ostrel::capi {

ostrel_error errorFrom(const OLError& error);
// An error of this layer: "InvalidArgument", "OutOfMemory" or "InternalError".
ostrel_error cApiError(std::string code, std::string message);

// Hands `value` to the caller through `out` (when wanted) and answers `code`.
ostrel_code_t report(ostrel_error_t** out, ostrel_code_t code, ostrel_error value);
inline ostrel_code_t fail(ostrel_error_t** out, const OLError& error) {
  return report(out, OSTREL_ERROR, errorFrom(error));
}
inline ostrel_code_t invalidArgument(ostrel_error_t** out, std::string message) {
  return report(out, OSTREL_INVALID_ARGUMENT, cApiError("InvalidArgument", std::move(message)));
}

// Returns the code of a check that refused (an argument, a missing instance)
// from the entry point that runs it.
#define OSTREL_C_CHECK(...)                                                          \
  do {                                                                               \
    if (const ostrel_code_t code_ = (__VA_ARGS__); code_ != OSTREL_OK) return code_; \
  } while (0)

// Runs `body` (which answers an ostrel_code_t) with *out cleared first; an
// exception becomes OSTREL_OUT_OF_MEMORY or OSTREL_INTERNAL_ERROR.
template <class Body>
ostrel_code_t guarded(ostrel_error_t** out, Body&& body) noexcept {
  if (out) *out = nullptr;
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return OSTREL_OUT_OF_MEMORY;
  } catch (const std::exception& e) {
    try {
      return report(out, OSTREL_INTERNAL_ERROR, cApiError("InternalError", e.what()));
    } catch (...) {
      return OSTREL_OUT_OF_MEMORY;
    }
  } catch (...) {
    return OSTREL_INTERNAL_ERROR;
  }
}

}  // namespace ostrel::capi
