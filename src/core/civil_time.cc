#include "core/civil_time.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace ostrel {
namespace {

using namespace std::chrono;

// Years 1 to 9999, the range of the dates the archives hold: beyond it the
// calendar's year type would overflow.
constexpr double kFirstInstant = -62135596800.0;
constexpr double kLastInstant = 253402300799.0;
constexpr long kDaySecs = 86400;
constexpr long kMaxOffsetSecs = 18 * 3600;

}  // namespace

long utcOffsetAt(const platform::Clock& zone, double secondsSince1970) {
  const long offset = zone.utcOffsetSecs(secondsSince1970);
  return offset < -kMaxOffsetSecs || offset > kMaxOffsetSecs ? 0 : offset;
}

CivilTime civilTimeOf(double secondsSince1970, long utcOffsetSecs) {
  utcOffsetSecs = std::clamp(utcOffsetSecs, -kMaxOffsetSecs, kMaxOffsetSecs);
  const double instant = std::isfinite(secondsSince1970)
                             ? std::clamp(secondsSince1970, kFirstInstant, kLastInstant)
                             : 0.0;
  const sys_seconds local{seconds{static_cast<long long>(std::floor(instant)) + utcOffsetSecs}};
  const auto date = floor<days>(local);
  const year_month_day ymd{date};
  const hh_mm_ss time{local - date};
  return {static_cast<int>(ymd.year()),
          static_cast<unsigned>(ymd.month()),
          static_cast<unsigned>(ymd.day()),
          static_cast<int>(time.hours().count()),
          static_cast<int>(time.minutes().count()),
          static_cast<int>(time.seconds().count())};
}

std::optional<double> instantOfLocalTime(const CivilTime& local, const platform::Clock& zone) {
  const year_month_day date{year{local.year}, month{local.month}, day{local.day}};
  if (!date.ok() || local.hour < 0 || local.hour > 23 || local.minute < 0 || local.minute > 59 ||
      local.second < 0 || local.second > 59) {
    return std::nullopt;
  }
  // The local time read as if it were UTC; the answer lies within 14 hours of it.
  const double asUtc = static_cast<double>(
      (sys_days{date} + hours{local.hour} + minutes{local.minute} + seconds{local.second})
          .time_since_epoch()
          .count());
  // The offsets a day either side bracket any change of offset near that time.
  const long before = utcOffsetAt(zone, asUtc - kDaySecs);
  const long after = utcOffsetAt(zone, asUtc + kDaySecs);
  const auto shows = [&](long offset) { return utcOffsetAt(zone, asUtc - offset) == offset; };
  if (!shows(before) && shows(after)) return asUtc - after;
  return asUtc - before;
}

}  // namespace ostrel
