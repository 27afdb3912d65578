#include "login/service_error_mapping.h"

namespace ostrel {

OLError mapServiceError(const OLError& error, const std::vector<ServiceCodeMapping>& known,
                        LocalErrorCodes fallback) {
  if (error.isLocal()) {
    if (error.localCode() != LocalErrorCodes::ConnectionError) return error;
    std::optional<PlatformError> cause;
    if (error.underlyingError()) cause = *error.underlyingError();
    return OLError::LocalError(fallback, error.message(), cause,
                               Json{{"error", error.description()}});
  }
  Json extra = {{"code", error.code()}, {"statusCode", *error.statusCode()}};
  if (error.extra()) extra["extra"] = *error.extra();
  for (const auto& m : known) {
    if (m.service == error.code())
      return OLError::LocalError(m.local, error.message(), std::nullopt, extra);
  }
  return OLError::LocalError(fallback, error.message(), std::nullopt, std::move(extra));
}

}  // namespace ostrel
