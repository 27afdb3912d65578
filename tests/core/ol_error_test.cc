#include "ostrel/ol_error.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

// Both tables of names: complete, without duplicates, and matched case-sensitively.
TEST(ErrorCodesTest, RawValuesRoundTripAndAreCaseSensitive) {
  for (int i = 0; i < kLocalErrorCodesCount; ++i) {
    auto code = static_cast<LocalErrorCodes>(i);
    EXPECT_EQ(localErrorCodeFromRaw(rawValue(code)), code) << rawValue(code);
  }
  for (int i = 0; i < kOstrelErrorCodesCount; ++i) {
    auto code = static_cast<OstrelErrorCodes>(i);
    EXPECT_EQ(ostrelErrorCodeFromRaw(rawValue(code)), code) << rawValue(code);
  }
  EXPECT_FALSE(localErrorCodeFromRaw("paymenterror").has_value());
  EXPECT_FALSE(ostrelErrorCodeFromRaw("wrong_pin").has_value());
  EXPECT_TRUE(std::string_view("WRONG_PIN") == OstrelErrorCodes::WRONG_PIN);
}

// The other shapes of a description are those UnifiedParserTest expects.
TEST(OLErrorTest, DescriptionWithAPlatformError) {
  auto error =
      OLError::LocalError(LocalErrorCodes::ConnectionError, "Error on Ostrel Server Response",
                          PlatformError{"ostrel.http", 7, "Connection refused"},
                          Json{{"body", "nil"}, {"statusCode", 503}});
  EXPECT_EQ(error.description(),
            "ConnectionError: Error on Ostrel Server Response (error: Optional(\"Connection "
            "refused\")) (extra: Optional([\"body\": \"nil\", \"statusCode\": 503]))");
}

TEST(DescribeValueTest, NestedValuesAndInvalidUtf8NeverThrow) {
  Json value = {{"list", {1, 2.5, "x", nullptr, true}}, {"empty", Json::object()}};
  EXPECT_EQ(describeValue(value), "[\"list\": [1, 2.5, \"x\", <null>, true], \"empty\": [:]]");
  Json bad = std::string("\xff\xfe");
  EXPECT_NO_THROW(describeValue(bad));
}

}  // namespace
}  // namespace ostrel
