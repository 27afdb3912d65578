// Remote payloads to push objects: every refusal is exact and carries the payload.
#include <gtest/gtest.h>

#include "ostrel/ol_push_builder.h"
#include "push/push_archive.h"
#include "push/user_info_parser.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

Json payload(const char* text) {
  return *parseJson(text);
}

TEST(PushParserTest, RefusedPayloadsGiveTheExactMessageAndCarryThePayload) {
  struct Case {
    const char* payload;
    const char* message;
  };
  const Case cases[] = {
      {R"({"aps":"N","push_id":"x"})", "Type not recognized in aps"},
      {R"({"aps":{"t":1},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":"n","alert":"b"},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":7})", "Push URL not recognized"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"https://a.b","custom":{"k":1}})",
       "Bad configured URL Push. custom fields must be nil"},
      // A notification without a body, whatever the shape: refused, never a stop.
      {R"({"aps":{"t":"N"},"push_id":"x"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"N","alert":7},"push_id":"x"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"N","alert":{"title":"only a title"}},"push_id":"x"})",
       "Body not recognized in aps"},
      {R"({"aps":{"t":"B","content-available":0},"push_id":"x","custom":{"k":1}})",
       "Bad configured Background Push. Missing content-available"},
      {R"({"aps":{"t":"B","content-available":"1"},"push_id":"x","custom":{"k":1}})",
       "Bad configured Background Push. Missing content-available"},
      {R"({"aps":{"t":"B","content-available":1,"alert":{"body":"b"}},"custom":{"k":1}})",
       "Bad configured Background Push. Push Body must be null"},
      {R"({"aps":{"t":"B","content-available":1,"sound":"s"},"custom":{"k":1}})",
       "Bad configured Background Push. Push Sound must be null"},
      {R"({"aps":{"t":"B","content-available":1,"badge":2},"custom":{"k":1}})",
       "Bad configured Background Push. Push Badge must be null"},
      {R"({"aps":{"t":"B","content-available":1},"push_id":"x","custom":[1]})",
       "Unrecognized Push Type"},
      {R"({"aps":{"t":"B","content-available":1},"custom":{"k":1}})", "Push ID not recognized"},
      {R"({"aps":{"t":"P"},"push_id":3})", "Push ID not recognized"},
      {R"({"aps":{"t":"N","alert":"b"}})", "Push ID not recognized"},
  };
  test::TestPlatform platform;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    auto push = OLPushBuilder::buildPushObject(payload(c.payload), false);
    ASSERT_FALSE(push);
    EXPECT_EQ(push.error().message(), c.message);
    EXPECT_EQ((*push.error().extra())["userInfo"], payload(c.payload));
  }
}

TEST(PushParserTest, PayloadsThatAreNotDictionariesAreUnrecognized) {
  for (const char* text : {"[1,2]", "{\"aps\":", "\xff\xfe"}) {
    auto push = OLPushBuilder::buildPushObject(std::string_view(text), true);
    ASSERT_FALSE(push) << text;
    EXPECT_EQ(push.error().message(), "Unrecognized User Info Dictionary");
    EXPECT_TRUE((*push.error().extra())["userInfo"].is_string());
  }
}

TEST(PushParserTest, ABadgeIsA64BitIntegerOrNone) {
  struct Case {
    const char* payload;
    std::optional<int64_t> badge;
  };
  const Case cases[] = {
      {R"({"aps":{"badge":"3"}})", std::nullopt},
      {R"({"aps":{"badge":-2}})", -2},
      {R"({"aps":{"badge":18446744073709551615}})", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    EXPECT_EQ(*UserInfoParser(payload(c.payload)).getBadge(), c.badge);
  }
}

TEST(PushParserTest, UrlsAreTheUrisOfRfc3986WithAWebScheme) {
  struct Case {
    const char* url;
    bool accepted;
  };
  const Case cases[] = {
      {"http:foo", true},  // a URI of scheme http and path "foo"
      {"https://", true},  // an empty registered name is one
      {"https://u:p@[::ffff:1.2.3.4]:8080/a/b;c?q=1/?#frag/?", true},
      {"http://[2001:db8::7]/", true},
      {"http://[1:2:3:4:5:6:7:8]/", true},
      {"http://[v7.a:b]/", true},
      {"https://x.y/%41%6a/~a-b_c.d!$&'()*+,;=:@", true},
      {"http://1.2.3.4:/", true},
      {"//ostrel.test/p", false},  // a relative reference has no scheme
      {"https://x.y/%4", false},
      {"https://[::1", false},
      {"https://[1:2:3:4:5:6:7:8:9]/", false},
      {"https://[1::2::3]/", false},
      {"https://[::1.2.3.256]/", false},
      {"https://x.y:8o/", false},
      {"https://x.y/#a#b", false},
      {"https://caf\xc3\xa9.test/", false},  // outside ASCII: a URI percent-encodes it
      {"HTTPS://a.b", false},                // the scheme is compared as written
  };
  test::TestPlatform platform;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url);
    Json userInfo = payload(R"({"aps":{"t":"U","alert":"b"},"push_id":"x"})");
    userInfo["url"] = c.url;
    auto push = OLPushBuilder::buildPushObject(userInfo, false);
    EXPECT_EQ(push.has_value(), c.accepted);
    if (!c.accepted) {
      EXPECT_EQ(push.error().message(), std::string("Url not recognized ") + c.url);
    }
  }
}

// Pings are built, archived and read back by the manager's pending-push tests.
TEST(PushParserTest, EachTypeIsBuiltWithItsFieldsAndRoundTrips) {
  test::TestPlatform platform;
  using T = PushNotificationType;
  struct Case {
    const char* payload;
    T type;
    const char* description;  // every field, as the push tells it
    bool shown = true;
  };
  const Case cases[] = {
      {R"({"aps":{"t":"N","alert":{"body":"hello"},"sound":"ding","badge":3},"push_id":"s1",)"
       R"("custom":{"level":7,"k":1.5}})",
       T::Standard,
       "Push ID: s1, at startup: true, local: false, body: hello, sound: ding, badge: 3, custom "
       R"(fields: {"level":7,"k":1.5})"},
      {R"({"aps":{"t":"U","alert":"open me"},"push_id":"u1","url":"https://ostrel.test/p"})",
       T::Url,
       "Push ID: u1, at startup: false, local: false, body: open me, sound: nil, badge: nil, "
       "custom fields: nil, RichURL: https://ostrel.test/p",
       false},
      {R"({"aps":{"t":"B","content-available":1},"push_id":"b1","custom":{"k":"v"}})",
       T::Background, R"(Push ID: b1, at startup: true, local: false, custom fields: {"k":"v"})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    auto push = OLPushBuilder::buildPushObject(payload(c.payload), c.shown);
    ASSERT_TRUE(push) << push.error().description();
    EXPECT_EQ((*push)->type(), c.type);
    EXPECT_EQ((*push)->description(), c.description);
    auto back = decodePush(archivePush(**push));
    ASSERT_TRUE(back) << back.error().description();
    EXPECT_EQ((*back)->description(), c.description);
  }
  EXPECT_FALSE(decodePush("garbage"));
}

}  // namespace
}  // namespace ostrel
