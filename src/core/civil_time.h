#pragma once
// Calendar dates and times of day in the local time zone, which only the
// platform's clock knows: every text the library writes or reads in local time
// goes through here, so no code outside the platform asks the C library.
#include <optional>

#include "ostrel/platform/clock.h"

namespace ostrel {

struct CivilTime {
  int year = 1970;
  unsigned month = 1;  // 1 to 12
  unsigned day = 1;    // 1 to 31
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// The clock's UTC offset at the instant; an offset beyond the +-18 hours any
// zone can have is taken as 0, so a host clock cannot upset the arithmetic.
long utcOffsetAt(const platform::Clock& zone, double secondsSince1970);

// The local date and time of an instant (whole seconds, rounded down) for a
// zone that is the given number of seconds east of UTC.
CivilTime civilTimeOf(double secondsSince1970, long utcOffsetSecs);

// The instant at which the clock's zone shows the local time; absent when no
// such day exists (31 February) or a field is out of range. A time that a
// change to summer time skips is read with the offset before the change (02:30
// becomes 03:30 summer time); one that the change back repeats is read as its
// first occurrence.
std::optional<double> instantOfLocalTime(const CivilTime& local, const platform::Clock& zone);

}  // namespace ostrel
