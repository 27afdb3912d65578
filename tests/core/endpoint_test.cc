#include "core/ostrel_api_endpoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

namespace ostrel {
namespace {

TEST(EndpointTest, EveryEndpointHasADistinctPathAndRoundTripsByName) {
  std::set<std::string_view> paths;
  for (int i = 0; i < kEndpointCount; ++i) {
    auto e = static_cast<OstrelAPIEndpoint>(i);
    EXPECT_TRUE(paths.insert(endpointPath(e)).second) << endpointPath(e);
    EXPECT_EQ(endpointFromName(endpointName(e)), e);
    EXPECT_EQ(endpointFromPath(endpointPath(e)), e);
  }
  EXPECT_FALSE(endpointFromName("trackbulk").has_value());
}

TEST(EndpointTest, UrlsPerEnvironment) {
  Deployment d;  // production constants
  struct Case {
    OstrelAPIEndpoint endpoint;
    bool sandbox, dev;
    std::string url;
  };
  const Case cases[] = {
      {OstrelAPIEndpoint::TrackBulk, false, false, "https://client.ostrel.io/events/track_bulk"},
      {OstrelAPIEndpoint::TrackBulk, true, true,
       "https://client-sandbox-dev.ostrel.io/events/track_bulk"},
      {OstrelAPIEndpoint::EmailLogin, true, false,
       "https://auth-sandbox.ostrel.io/login/direct/email/login"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(getEndpoint(c.endpoint, false, c.sandbox, c.dev, d), c.url);
    EXPECT_EQ(getEndpoint(c.endpoint, true, c.sandbox, c.dev, d), c.url) << "isDebug is ignored";
  }
  d.scheme = "http";
  d.domain = "ostrel.test";
  EXPECT_EQ(getEndpoint(OstrelAPIEndpoint::RichPush, false, false, false, d),
            "http://client.ostrel.test/v1/rich");
}

struct BodyCase {
  OstrelAPIEndpoint endpoint;
  std::optional<Json> body;
  std::string message;  // empty: accepted
};

TEST(EndpointTest, BodyRules) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // One case per branch; the other endpoints only differ in their row of the table.
  const BodyCase cases[] = {
      {OstrelAPIEndpoint::TrackBulk, Json::array({{{"a", 1}}}), ""},
      {OstrelAPIEndpoint::TrackBulk, Json::object(), "Input must be an array"},
      {OstrelAPIEndpoint::TrackBulk, std::nullopt, "Invalid JSON object"},
      {OstrelAPIEndpoint::TrackBulk, Json::array({nan}), "Invalid JSON object"},
      {OstrelAPIEndpoint::UserInfo, Json::array(), "Input must be a dictionary"},
      {OstrelAPIEndpoint::UserInfo, Json{{"user_id", 5}}, "Missing User Token (user_id)"},
      {OstrelAPIEndpoint::UserInfo, Json{{"user_id", "A_x"}}, ""},
      {OstrelAPIEndpoint::RichPush, Json::object(), ""},
      {OstrelAPIEndpoint::RichPush, Json{{"a", 1}},
       "Rich push do not support input values in body"},
      {OstrelAPIEndpoint::PaymentReceiptAdd,
       Json{{"user_id", "u"}, {"serialized_receipt", {{"offerId", "o"}, {"receipt", "r"}}}}, ""},
      {OstrelAPIEndpoint::PaymentReceiptAdd, Json{{"user_id", "u"}}, "Missing serialized receipt"},
  };
  for (const auto& c : cases) {
    auto result = getValidatedInputBody(c.endpoint, c.body);
    if (c.message.empty()) {
      ASSERT_TRUE(result.has_value())
          << endpointName(c.endpoint) << ": " << result.error().description();
      EXPECT_EQ(*result, *c.body) << "returned unchanged";
    } else {
      ASSERT_FALSE(result.has_value()) << endpointName(c.endpoint) << " accepted " << c.message;
      EXPECT_TRUE(result.error().is(LocalErrorCodes::ConnectionValidationError, c.message))
          << endpointName(c.endpoint) << ": " << result.error().description();
    }
  }
  // A refusal of the shape carries the body as the service's log shows it.
  auto shape = getValidatedInputBody(OstrelAPIEndpoint::TrackBulk, Json{{"k", "v"}});
  EXPECT_EQ((*shape.error().extra())["body"], "[\"k\": \"v\"]");
}

TEST(UnifiedParserTest, Cases) {
  struct Case {
    int64_t status;
    std::optional<Json> body;
    std::optional<std::string> description;  // absent: success
  };
  const Case cases[] = {
      {204, std::nullopt, std::nullopt},
      {401, Json{{"error", {{"code", "WRONG_PIN"}, {"message", "bad"}}}},
       "Ostrel Error [WRONG_PIN/401]: bad (extra: nil"},
      {404, Json{{"error", {{"code", 7}, {"extra", Json::object()}}}},
       "Ostrel Error [HTTP 404/404]: unknown (extra: nil"},
      {409, Json{{"error", {{"code", "C"}, {"message", "m"}, {"extra", {{"k", "v"}}}}}},
       "Ostrel Error [C/409]: m (extra: Optional([\"k\": \"v\"])"},
      {300, Json{{"__parsed_string__", "moved"}},
       "Ostrel Error [HTTP 300/300]: unknown (extra: nil"},
      {503, std::nullopt,
       "ConnectionValidationError: Unexpected Null body in a HTTP 503 error (error: nil) (extra: "
       "Optional([\"body\": \"nil\", \"statusCode\": 503]))"},
  };
  auto parser = getUnifiedParser();
  for (const auto& c : cases) {
    auto [error, result] = parser(c.status, c.body);
    if (!c.description) {
      EXPECT_FALSE(error.has_value()) << c.status;
      EXPECT_EQ(result, c.body);
    } else {
      ASSERT_TRUE(error.has_value()) << c.status;
      EXPECT_EQ(error->description(), *c.description);
      EXPECT_FALSE(result.has_value());
    }
  }
}

}  // namespace
}  // namespace ostrel
