#include "login/service_error_mapping.h"

#include "login/ol_login_flow_base.h"

namespace ostrel {

OLError mapServiceError(const OLError& error, const std::vector<ServiceCodeMapping>& known,
                        LocalErrorCodes fallback, const std::optional<Json>& reply) {
  if (error.isLocal()) {
    if (error.localCode() != LocalErrorCodes::ConnectionError) return error;
    std::optional<PlatformError> cause;
    if (error.underlyingError()) cause = *error.underlyingError();
    return OLError::LocalError(fallback, error.message(), cause,
                               Json{{"error", error.description()}});
  }
  const int64_t status = error.statusCode().value_or(0);
  Json extra = {{"code", error.code()}, {"statusCode", status}};
  if (error.extra()) extra["extra"] = *error.extra();
  extra["body"] = bodyText(reply);
  LocalErrorCodes local = fallback;
  for (const auto& m : known) {
    if (m.service == error.code()) {
      local = m.local;
      break;
    }
  }
  return OLError::LocalError(local, error.message(), std::nullopt, std::move(extra), status);
}

}  // namespace ostrel
