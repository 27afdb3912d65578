#pragma once
// Adapters from the library's std::function callbacks to the C callbacks of
// the API: each converts the outcome into borrowed C values, calls the host's
// function once, and swallows whatever could go wrong on the library's thread.
#include <optional>
#include <string>

#include "ostrel/ol_error.h"
#include "ostrel/ostrel.h"
#include "ostrel/ostrel_c.h"

namespace ostrel::capi {

// Calls `fn` (when set) with the error, or NULL, and `result`, which may be NULL.
void deliver(ostrel_result_fn fn, void* userData, const std::optional<OLError>& error,
             const char* result) noexcept;

// One-shot callbacks: the C function runs at most once, whatever the library does.
ErrorCallback errorCallback(ostrel_result_fn fn, void* userData);
// The optional result reaches C as JSON text.
DictionaryCallback jsonCallback(ostrel_result_fn fn, void* userData);
// The optional result reaches C as it is (a text).
TokenCallback textCallback(ostrel_result_fn fn, void* userData);

}  // namespace ostrel::capi
