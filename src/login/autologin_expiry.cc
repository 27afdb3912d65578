#include "login/autologin_expiry.h"

#include <cstdio>

#include "core/civil_time.h"

namespace ostrel {
namespace {

template <class Number>
bool readNumber(std::string_view digits, Number& out) {
  out = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return false;
    out = out * 10 + static_cast<Number>(c - '0');
  }
  return true;
}

}  // namespace

std::optional<double> autologinExpiry(std::string_view token, const platform::Clock& zone) {
  if (token.size() < 17) return std::nullopt;
  const std::string_view text = token.substr(2, 14);
  CivilTime local;
  if (!readNumber(text.substr(0, 4), local.year) || !readNumber(text.substr(4, 2), local.month) ||
      !readNumber(text.substr(6, 2), local.day) || !readNumber(text.substr(8, 2), local.hour) ||
      !readNumber(text.substr(10, 2), local.minute) ||
      !readNumber(text.substr(12, 2), local.second)) {
    return std::nullopt;
  }
  return instantOfLocalTime(local, zone);
}

std::string formatAutologinInstant(double secondsSince1970, const platform::Clock& zone) {
  const CivilTime t = civilTimeOf(secondsSince1970, utcOffsetAt(zone, secondsSince1970));
  char text[32];
  std::snprintf(text, sizeof text, "%04d%02u%02u%02d%02d%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  return text;
}

}  // namespace ostrel
