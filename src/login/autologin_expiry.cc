#include "login/autologin_expiry.h"

#include <cctype>
#include <cstdio>
#include <ctime>
#include <string>

namespace ostrel {
namespace {

bool readNumber(std::string_view digits, int& out) {
  out = 0;
  for (char c : digits) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    out = out * 10 + (c - '0');
  }
  return true;
}

}  // namespace

std::optional<double> autologinExpiry(std::string_view token) {
  if (token.size() < 17) return std::nullopt;
  std::string_view text = token.substr(2, 14);
  int year, month, day, hour, minute, second;
  if (!readNumber(text.substr(0, 4), year) || !readNumber(text.substr(4, 2), month) ||
      !readNumber(text.substr(6, 2), day) || !readNumber(text.substr(8, 2), hour) ||
      !readNumber(text.substr(10, 2), minute) || !readNumber(text.substr(12, 2), second)) {
    return std::nullopt;
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  tm.tm_isdst = -1;  // the zone's rules decide summer time
  const std::tm asked = tm;
  std::time_t t = std::mktime(&tm);
  if (t == static_cast<std::time_t>(-1)) return std::nullopt;
  // mktime normalises impossible dates (31 February); a formatter would refuse them.
  if (tm.tm_mday != asked.tm_mday || tm.tm_mon != asked.tm_mon || tm.tm_year != asked.tm_year) {
    return std::nullopt;
  }
  return static_cast<double>(t);
}

std::string formatAutologinInstant(double secondsSince1970) {
  std::time_t t = static_cast<std::time_t>(secondsSince1970);
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S", &tm);
  return buf;
}

}  // namespace ostrel
