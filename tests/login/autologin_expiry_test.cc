#include "login/autologin_expiry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "platform/defaults.h"

namespace ostrel {
namespace {

// A local time zone: standard time, plus an hour of summer time between two
// instants.
class ZoneClock : public platform::Clock {
 public:
  explicit ZoneClock(long standardSecs, double summerFrom = 0, double summerUntil = 0)
      : standard_(standardSecs), from_(summerFrom), until_(summerUntil) {}
  double now() const override { return 0; }
  long utcOffsetSecs(double t) const override {
    return standard_ + (t >= from_ && t < until_ ? 3600 : 0);
  }

 private:
  long standard_;
  double from_, until_;
};

// The process's time zone, which the default clock follows.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) old_ = old;
    ::setenv("TZ", tz, 1);
    ::tzset();
  }
  ~ScopedTimeZone() {
    if (old_.empty()) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", old_.c_str(), 1);
    }
    ::tzset();
  }

 private:
  std::string old_;
};

TEST(AutologinExpiryTest, ReadsTheLocalInstantAfterTheTwoCharacterPrefix) {
  const ZoneClock utc(0), stJohns(-12600);
  const ZoneClock rome(3600, 1774746000, 1792890000);  // summer time of 2026
  const auto system = platform::makeSystemClock();
  struct Case {
    const platform::Clock& zone;
    const char* tz;  // for the default clock: the process's time zone
    const char* token;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {utc, nullptr, "L_20261122153000xyz", 1795361400},
      {rome, nullptr, "L_20261122163000xyz", 1795361400},  // UTC+1 in November
      {rome, nullptr, "L_20260701020000", std::nullopt},   // 16 characters: too short
      {rome, nullptr, "L_20260701020000a", 1782864000},    // summer: UTC+2
      // 02:30 that the change to summer time skips reads as winter time (03:30
      // summer time); the 02:30 that the change back repeats is the first one.
      {rome, nullptr, "L_20260329023000a", 1774747800},
      {rome, nullptr, "L_20261025023000a", 1792888200},
      {stJohns, nullptr, "L_20261122120000abc", 1795361400},  // UTC-3:30
      {utc, nullptr, "L_2026112215300Xxyz", std::nullopt},
      {utc, nullptr, "L_20260231000000xyz", std::nullopt},  // no 31 February
      {utc, nullptr, "L_20261322000000xyz", std::nullopt},
      {utc, nullptr, "", std::nullopt},
      {*system, "Europe/Rome", "L_20260701020000a", 1782864000},
  };
  for (const auto& c : cases) {
    std::optional<ScopedTimeZone> zone;
    if (c.tz) zone.emplace(c.tz);
    EXPECT_EQ(autologinExpiry(c.token, c.zone), c.expected) << c.token;
  }
}

TEST(AutologinExpiryTest, FormatsWhatItReads) {
  const ZoneClock rome(3600, 1774746000, 1792890000);
  const ZoneClock kolkata(19800), losAngeles(-28800);
  for (const platform::Clock* zone : {&rome, &kolkata, &losAngeles}) {
    for (double instant : {1795361400.0, 1782864000.0}) {
      std::string token = "L_" + formatAutologinInstant(instant, *zone) + "random";
      EXPECT_EQ(autologinExpiry(token, *zone), instant) << token;
    }
  }
}

}  // namespace
}  // namespace ostrel
