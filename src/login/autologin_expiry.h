#pragma once
// The autologin token carries its own expiry: after a 2-character prefix come
// 14 digits yyyyMMddHHmmss, read in the device's local time zone.
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/clock.h"

namespace ostrel {

// Seconds since 1970 of the instant encoded in the token, read in the clock's
// local time zone; absent when the text is shorter than 17 characters or the
// digits are no valid date and time.
std::optional<double> autologinExpiry(std::string_view token, const platform::Clock& zone);

// The 14-digit local-time text of an instant in the clock's zone (the service
// side writes it so).
std::string formatAutologinInstant(double secondsSince1970, const platform::Clock& zone);

}  // namespace ostrel
