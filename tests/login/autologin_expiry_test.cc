#include "login/autologin_expiry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace ostrel {
namespace {

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
  struct Case {
    const char* tz;
    const char* token;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {"UTC", "L_20261122153000xyz", 1795361400},
      {"Europe/Rome", "L_20261122163000xyz", 1795361400},       // UTC+1 in November
      {"Europe/Rome", "L_20260701020000", std::nullopt},        // 16 characters: too short
      {"Europe/Rome", "L_20260701020000a", 1782864000},         // summer: UTC+2
      {"America/St_Johns", "L_20261122120000abc", 1795361400},  // UTC-3:30
      {"UTC", "L_2026112215300Xxyz", std::nullopt},
      {"UTC", "L_20260231000000xyz", std::nullopt},  // no 31 February
      {"UTC", "L_20261322000000xyz", std::nullopt},
      {"UTC", "", std::nullopt},
  };
  for (const auto& c : cases) {
    ScopedTimeZone zone(c.tz);
    EXPECT_EQ(autologinExpiry(c.token), c.expected) << c.tz << " " << c.token;
  }
}

TEST(AutologinExpiryTest, FormatsWhatItReads) {
  for (const char* tz : {"UTC", "Asia/Kolkata", "America/Los_Angeles"}) {
    ScopedTimeZone zone(tz);
    double instant = 1795361400;
    std::string token = "L_" + formatAutologinInstant(instant) + "random";
    EXPECT_EQ(autologinExpiry(token), instant) << tz;
  }
}

}  // namespace
}  // namespace ostrel
