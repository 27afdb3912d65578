#include <gtest/gtest.h>

#include "ostrel/ostrel.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

// One test walks the singleton's whole life, since it cannot be torn down.
TEST(FacadeSingletonTest, LifeOfTheSharedInstance) {
  test::TestPlatform platform;
  auto before = Ostrel::getSharedInstance();
  ASSERT_FALSE(before);
  EXPECT_TRUE(before.error().is(LocalErrorCodes::OstrelNotInitialized,
                                "Must call getSharedInstanceWithConfig first"));

  // Input refused at start-up is a clear error, and does not spend the one creation.
  auto refused = Ostrel::getSharedInstanceWithConfig(
      "app_secret", nullptr,
      ExternalParameters{{OLExternalParameterKey::DistributionGroup(), "a\"b"}},
      platform.platform());
  ASSERT_FALSE(refused);
  EXPECT_TRUE(
      refused.error().is(LocalErrorCodes::ConnectionValidationError, "Invalid distribution group"));

  auto created =
      Ostrel::getSharedInstanceWithConfig("app_secret", nullptr, std::nullopt, platform.platform());
  ASSERT_TRUE(created) << created.error().description();
  // An underscore in the secret selects the sandbox, which a release build is warned about.
  EXPECT_EQ((*created)->environmentString(), "PROD-SANDBOX");
  EXPECT_TRUE(
      platform.log().contains("Warning using sandbox environment in a Release application!!"));

  auto again = Ostrel::getSharedInstanceWithConfig("app_secret");
  ASSERT_FALSE(again);
  EXPECT_TRUE(again.error().is(LocalErrorCodes::OstrelInitializationError,
                               "Ostrel Already Initialized. Must call getSharedInstance"));

  auto shared = Ostrel::getSharedInstance();
  ASSERT_TRUE(shared);
  EXPECT_EQ(shared->get(), created->get());
}

}  // namespace
}  // namespace ostrel
