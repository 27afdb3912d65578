#include "ostrel/ol_error.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

TEST(LocalErrorCodesTest, RawValuesRoundTripAndAreCaseSensitive) {
  for (int i = 0; i < kLocalErrorCodesCount; ++i) {
    auto code = static_cast<LocalErrorCodes>(i);
    EXPECT_EQ(localErrorCodeFromRaw(rawValue(code)), code) << rawValue(code);
  }
  for (const char* text : {"paymenterror", "", "PaymentError ", "OstrelError"}) {
    EXPECT_FALSE(localErrorCodeFromRaw(text).has_value()) << text;
  }
}

TEST(OstrelErrorCodesTest, CompareWithTextBothWays) {
  EXPECT_EQ(ostrelErrorCodeFromRaw("WRONG_PIN"), OstrelErrorCodes::WRONG_PIN);
  EXPECT_FALSE(ostrelErrorCodeFromRaw("wrong_pin").has_value());
  EXPECT_FALSE(ostrelErrorCodeFromRaw("HTTP 404").has_value());
  EXPECT_TRUE(std::string_view("WRONG_PIN") == OstrelErrorCodes::WRONG_PIN);
  EXPECT_TRUE(OstrelErrorCodes::WRONG_PIN == std::string_view("WRONG_PIN"));
  EXPECT_FALSE(OstrelErrorCodes::WRONG_PIN != std::string_view("WRONG_PIN"));
  EXPECT_TRUE(std::string_view("WRONG_EMAIL_PASSWORD") != OstrelErrorCodes::WRONG_PIN);
  for (int i = 0; i < kOstrelErrorCodesCount; ++i) {
    auto code = static_cast<OstrelErrorCodes>(i);
    EXPECT_EQ(ostrelErrorCodeFromRaw(rawValue(code)), code);
  }
}

TEST(OLErrorTest, Descriptions) {
  struct Case {
    OLError error;
    std::string expected;
  };
  const Case cases[] = {
      {OLError::OstrelError("X", "m", 409), "Ostrel Error [X/409]: m (extra: nil"},
      {OLError::OstrelError("WRONG_PIN", "bad", 401, Json{{"a", 1}}),
       "Ostrel Error [WRONG_PIN/401]: bad (extra: Optional([\"a\": 1])"},
      {OLError::LocalError(LocalErrorCodes::StorageError, "m"),
       "StorageError: m (error: nil) (extra: nil)"},
      {OLError::LocalError(LocalErrorCodes::ConnectionError, "Error on Ostrel Server Response",
                           PlatformError{"ostrel.http", 7, "Connection refused"},
                           Json{{"body", "nil"}, {"statusCode", 503}}),
       "ConnectionError: Error on Ostrel Server Response (error: Optional(\"Connection "
       "refused\")) (extra: Optional([\"body\": \"nil\", \"statusCode\": 503]))"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.error.description(), c.expected);
}

TEST(DescribeValueTest, NestedValuesAndInvalidUtf8NeverThrow) {
  Json value = {{"list", {1, 2.5, "x", nullptr, true}}, {"empty", Json::object()}};
  EXPECT_EQ(describeValue(value), "[\"list\": [1, 2.5, \"x\", <null>, true], \"empty\": [:]]");
  Json bad = std::string("\xff\xfe");
  EXPECT_NO_THROW(describeValue(bad));
}

}  // namespace
}  // namespace ostrel
