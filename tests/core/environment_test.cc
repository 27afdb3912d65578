#include "core/ostrel_environment.h"

#include <gtest/gtest.h>

#include "support/test_platform.h"

namespace ostrel {
namespace {

TEST(EnvironmentTest, UnderscoreSelectsSandboxAndWarnsOutsideDevelopmentBuilds) {
  struct Case {
    std::string secret;
    bool developmentApp;
    bool sandbox;
    bool warns;
  };
  const Case cases[] = {
      {"abc_def", false, true, true},
      {"_", true, true, false},
      {"secret", false, false, false},
      {"", false, false, false},
  };
  for (const auto& c : cases) {
    test::TestPlatform platform;
    OstrelEnvironment env(c.secret, c.developmentApp, platform.log());
    EXPECT_EQ(env.isSandbox(), c.sandbox) << c.secret;
    EXPECT_EQ(
        platform.log().contains("Warning using sandbox environment in a Release application!!"),
        c.warns)
        << c.secret;
  }
}

}  // namespace
}  // namespace ostrel
