#pragma once
// The autologin token carries its own expiry: after a 2-character prefix come
// 14 digits yyyyMMddHHmmss, read in the device's local time zone.
#include <optional>
#include <string>
#include <string_view>

namespace ostrel {

// Seconds since 1970 of the instant encoded in the token; absent when the text
// is shorter than 17 characters or the digits are no valid local time.
std::optional<double> autologinExpiry(std::string_view token);

// The 14-digit local-time text of an instant (the service side writes it so).
std::string formatAutologinInstant(double secondsSince1970);

}  // namespace ostrel
