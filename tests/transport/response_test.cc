#include <gtest/gtest.h>

#include "support/test_platform.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

TEST(DecodeBodyTest, JsonTextOrHex) {
  struct Case {
    std::string bytes;
    std::optional<Json> expected;
  };
  const Case cases[] = {
      {"", std::nullopt},
      {"{\"a\":[1,2]}", Json{{"a", {1, 2}}}},
      {"OK", Json{{"__parsed_string__", "OK"}}},
      {"[1,2]", Json{{"__parsed_string__", "[1,2]"}}},
      {std::string("\xff\x00\x10", 3), Json{{"__parsed_hex__", "ff0010"}}},
      {std::string(100000, '['), Json{{"__parsed_string__", std::string(100000, '[')}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(OLConnector::decodeBody(c.bytes), c.expected) << c.bytes.substr(0, 20);
  }
}

struct Outcome {
  std::optional<OLError> error;
  int64_t status = -1;
  std::optional<Json> body;
  std::shared_ptr<test::CapturingLogSink> log = std::make_shared<test::CapturingLogSink>();
};

Outcome parse(const std::optional<PlatformError>& error, long status, std::string body,
              std::string finalUrl) {
  Outcome out;
  platform::HttpResponse response;
  response.status = status;
  response.body = std::move(body);
  response.finalUrl = std::move(finalUrl);
  OLConnector::parseResponse(error, response, "ostrel.io", *out.log,
                             [&](std::optional<OLError> e, int64_t s, std::optional<Json> b) {
                               out.error = std::move(e);
                               out.status = s;
                               out.body = std::move(b);
                             });
  return out;
}

TEST(ParseResponseTest, DomainCheck) {
  struct Case {
    std::string url;
    bool inDomain;
  };
  const Case cases[] = {
      {"https://client.ostrel.io/events/track_bulk", true},
      {"https://auth-sandbox-dev.ostrel.io:443/x", true},
      {"https://ostrel.io/x", false},  // the bare domain is not under it
      {"https://evilostrel.io/x", false},
      {"https://ostrel.io.evil.com/x", false},
      {"https://client.ostrel.io@evil.com/x", false},  // user information, not the host
      {"", true},                                      // no host: nothing to check
  };
  for (const auto& c : cases) {
    auto out = parse(std::nullopt, 200, "{\"k\":1}", c.url);
    EXPECT_EQ(out.status, 200);
    EXPECT_EQ(out.body, (Json{{"k", 1}}));
    if (c.inDomain) {
      EXPECT_FALSE(out.error) << c.url;
    } else {
      ASSERT_TRUE(out.error) << c.url;
      EXPECT_TRUE(out.error->is(LocalErrorCodes::ConnectionDomainWarning,
                                "Response is not coming from ostrel.io domain"));
      const std::string raw = "{\"k\":1}";
      EXPECT_EQ(*out.error->extra(),
                (Json{{"response", Json::binary({raw.begin(), raw.end()})}, {"statusCode", 200}}));
      EXPECT_TRUE(out.log->contains("Connection came from URL " + c.url));
    }
  }
}

}  // namespace
}  // namespace ostrel
