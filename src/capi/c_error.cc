#include "capi/c_error.h"

#include <utility>

namespace ostrel::capi {

ostrel_error errorFrom(const OLError& error) {
  ostrel_error e;
  e.kind = error.isLocal() ? OSTREL_ERROR_KIND_LOCAL : OSTREL_ERROR_KIND_SERVICE;
  e.code = error.code();
  e.message = error.message();
  e.description = error.description();
  e.status = error.statusCode();
  if (const Json* extra = error.extra(); extra != nullptr && !extra->is_null()) {
    e.extraJson = dumpJson(*extra);
  }
  return e;
}

ostrel_error cApiError(std::string code, std::string message) {
  ostrel_error e;
  e.kind = OSTREL_ERROR_KIND_C_API;
  e.description = code + ": " + message;
  e.code = std::move(code);
  e.message = std::move(message);
  return e;
}

ostrel_code_t report(ostrel_error_t** out, ostrel_code_t code, ostrel_error value) {
  if (out) *out = new ostrel_error(std::move(value));
  return code;
}

}  // namespace ostrel::capi

extern "C" {

ostrel_error_kind_t ostrel_error_kind(const ostrel_error_t* error) {
  return error ? error->kind : OSTREL_ERROR_KIND_C_API;
}

const char* ostrel_error_code(const ostrel_error_t* error) {
  return error ? error->code.c_str() : "";
}

const char* ostrel_error_message(const ostrel_error_t* error) {
  return error ? error->message.c_str() : "";
}

int ostrel_error_status(const ostrel_error_t* error, int64_t* status) {
  if (!error || !error->status) return 0;
  if (status) *status = *error->status;
  return 1;
}

const char* ostrel_error_extra_json(const ostrel_error_t* error) {
  return error && error->extraJson ? error->extraJson->c_str() : nullptr;
}

const char* ostrel_error_description(const ostrel_error_t* error) {
  return error ? error->description.c_str() : "";
}

ostrel_error_t* ostrel_error_copy(const ostrel_error_t* error) {
  if (!error) return nullptr;
  try {
    return new ostrel_error(*error);
  } catch (...) {
    return nullptr;
  }
}

void ostrel_error_free(ostrel_error_t* error) {
  delete error;
}

}  // extern "C"
