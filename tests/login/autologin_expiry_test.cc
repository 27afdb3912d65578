#include "login/autologin_expiry.h"

#include <gtest/gtest.h>

#include "login/tokens.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

using test::ZoneClock;

TEST(AutologinExpiryTest, ReadsTheLocalInstantAfterTheTwoCharacterPrefixAndFormatsIt) {
  const ZoneClock utc(0), stJohns(-12600);
  const ZoneClock rome(3600, 1774746000, 1792890000);  // summer time of 2026
  struct Case {
    const platform::Clock& zone;
    const char* token;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {rome, "L_20261122163000xyz", 1795361400},  // UTC+1 in November
      {rome, "L_20260701020000", std::nullopt},   // 16 characters: too short
      {rome, "L_20260701020000a", 1782864000},    // summer: UTC+2
      // 02:30 that the change to summer time skips reads as winter time (03:30
      // summer time); the 02:30 that the change back repeats is the first one.
      {rome, "L_20260329023000a", 1774747800},
      {rome, "L_20261025023000a", 1792888200},
      {stJohns, "L_20261122120000abc", 1795361400},  // UTC-3:30
      {utc, "L_2026112215300Xxyz", std::nullopt},
      {utc, "L_20260231000000xyz", std::nullopt},  // no 31 February
  };
  for (const auto& c : cases) {
    EXPECT_EQ(autologinExpiry(c.token, c.zone), c.expected) << c.token;
  }
  // What it formats, it reads back.
  const ZoneClock kolkata(19800), losAngeles(-28800);
  for (const platform::Clock* zone : {&rome, &kolkata, &losAngeles}) {
    for (double instant : {1795361400.0, 1782864000.0}) {
      std::string token = "L_" + formatAutologinInstant(instant, *zone) + "random";
      EXPECT_EQ(autologinExpiry(token, *zone), instant) << token;
    }
  }
}

// A token that cannot be read counts as expired; the instant itself is still valid.
TEST(AutologinTokenTest, AnUnreadableTokenIsExpiredAndExpiryIsStrict) {
  test::TestPlatform platform;
  EXPECT_TRUE(AutologinToken("L_2026112215300").isExpired(platform.platform()));
  AutologinToken token("L_" + formatAutologinInstant(1795361400, platform.clock()) + "abc");
  platform.clock().set(1795361400);
  EXPECT_FALSE(token.isExpired(platform.platform()));
  platform.clock().set(1795361401);
  EXPECT_TRUE(token.isExpired(platform.platform()));
}

}  // namespace
}  // namespace ostrel
