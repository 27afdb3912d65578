#pragma once
// Texts crossing the C boundary: checking what comes in (present, UTF-8,
// JSON of the right shape) and copying out what the caller will own.
#include <memory>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel_c.h"

namespace ostrel::capi {

// A copy the caller frees with ostrel_string_free (std::bad_alloc when memory ran out).
char* copyOut(const std::string& text);

// Each reader answers OSTREL_OK with `out` set, or refuses the argument
// named `what` through `error`.
ostrel_code_t readText(const char* in, const char* what, std::string& out, ostrel_error_t** error);
// NULL is absent.
ostrel_code_t readOptionalText(const char* in, const char* what, std::optional<std::string>& out,
                               ostrel_error_t** error);
// NULL is no data; anything else must be a JSON object that a simple object
// takes (the library's own SimpleObjectCreationError otherwise).
ostrel_code_t readCustomData(const char* json, const char* what,
                             std::shared_ptr<OLSimpleObject>& out, ostrel_error_t** error);
// A required out-parameter.
ostrel_code_t needOut(const void* out, const char* what, ostrel_error_t** error);

}  // namespace ostrel::capi
