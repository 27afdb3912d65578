// Remote payloads to push objects: every refusal is exact and carries the payload.
#include <gtest/gtest.h>

#include "events/push_events.h"
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
      {R"({"push_id":"x"})", "Type not recognized in aps"},
      {R"({"aps":"N","push_id":"x"})", "Type not recognized in aps"},
      {R"({"aps":{},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":1},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":"n","alert":"b"},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":"X"},"push_id":"x"})", "Push Type not recognized"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x"})", "Push URL not recognized"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":7})", "Push URL not recognized"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"https://a.b","custom":{"k":1}})",
       "Bad configured URL Push. custom fields must be nil"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"ftp://a.b/c"})",
       "Url not recognized ftp://a.b/c"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"HTTPS://a.b"})",
       "Url not recognized HTTPS://a.b"},
      {R"({"aps":{"t":"U","alert":"b"},"push_id":"x","url":"not a url"})",
       "Url not recognized not a url"},
      // A notification without a body, whatever the shape: refused, never a stop.
      {R"({"aps":{"t":"N"},"push_id":"x"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"N","alert":7},"push_id":"x"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"N","alert":{"title":"only a title"}},"push_id":"x"})",
       "Body not recognized in aps"},
      {R"({"aps":{"t":"N","alert":{"body":null}},"push_id":"x"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"U"},"push_id":"x","url":"https://a.b"})", "Body not recognized in aps"},
      {R"({"aps":{"t":"U","alert":{"title":"t"}},"push_id":"x","url":"https://a.b"})",
       "Body not recognized in aps"},
      {R"({"aps":{"t":"B"},"push_id":"x","custom":{"k":1}})",
       "Bad configured Background Push. Missing content-available"},
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
      {R"({"aps":{"t":"B","content-available":1},"push_id":"x"})", "Unrecognized Push Type"},
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
    EXPECT_EQ(push.error().localCode(), LocalErrorCodes::PushNotificationError);
    EXPECT_EQ(push.error().message(), c.message);
    EXPECT_EQ((*push.error().extra())["userInfo"], payload(c.payload));
  }
}

TEST(PushParserTest, PayloadsThatAreNotDictionariesAreUnrecognized) {
  for (const char* text : {"[1,2]", "\"aps\"", "42", "null", "{\"aps\":", "", "\xff\xfe"}) {
    auto push = OLPushBuilder::buildPushObject(std::string_view(text), true);
    ASSERT_FALSE(push) << text;
    EXPECT_EQ(push.error().message(), "Unrecognized User Info Dictionary");
    EXPECT_TRUE((*push.error().extra())["userInfo"].is_string());
  }
  // Nesting far deeper than any payload: refused, not a stack overflow.
  std::string deep = "{\"aps\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
  EXPECT_FALSE(OLPushBuilder::buildPushObject(std::string_view(deep), false));
}

TEST(PushParserTest, EachTypeIsBuiltWithItsFields) {
  test::TestPlatform platform;
  auto ping = OLPushBuilder::buildPushObject(payload(R"({"aps":{"t":"P"},"push_id":"x"})"), true);
  ASSERT_TRUE(ping);
  EXPECT_EQ((*ping)->type(), PushNotificationType::Ping);
  EXPECT_EQ((*ping)->pushId, "x");
  EXPECT_TRUE((*ping)->shown);
  EXPECT_FALSE((*ping)->isLocal);

  auto standard = OLPushBuilder::buildPushObject(
      payload(R"({"aps":{"t":"N","alert":{"body":"hello"},"sound":"ding","badge":3},)"
              R"("push_id":"s1","custom":{"level":7}})"),
      false);
  ASSERT_TRUE(standard);
  auto s = std::dynamic_pointer_cast<OLStandardPush>(*standard);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->body, "hello");
  EXPECT_EQ(s->sound, "ding");
  EXPECT_EQ(s->badge, 3);
  ASSERT_TRUE(s->customFields);
  EXPECT_EQ(s->customFields->getDictionary()["level"], 7);

  auto url = OLPushBuilder::buildPushObject(
      payload(
          R"({"aps":{"t":"U","alert":"open me"},"push_id":"u1","url":"https://ostrel.test/p"})"),
      false);
  ASSERT_TRUE(url);
  auto u = std::dynamic_pointer_cast<OLUrlPush>(*url);
  ASSERT_TRUE(u);
  EXPECT_EQ(u->url, "https://ostrel.test/p");
  EXPECT_FALSE(u->customFields);
  EXPECT_NE(u->description().find("RichURL: https://ostrel.test/p"), std::string::npos);

  auto background = OLPushBuilder::buildPushObject(
      payload(R"({"aps":{"t":"B","content-available":1},"push_id":"b1","custom":{"k":"v"}})"),
      false);
  ASSERT_TRUE(background);
  EXPECT_EQ((*background)->type(), PushNotificationType::Background);
}

TEST(PushParserTest, FieldReadersOnOddShapes) {
  struct Case {
    const char* payload;
    std::optional<std::string> body;
    std::optional<int64_t> badge;
  };
  const Case cases[] = {
      {R"({"aps":{"alert":"plain"}})", "plain", std::nullopt},
      {R"({"aps":{"alert":{"body":"nested"}}})", "nested", std::nullopt},
      {R"({"aps":{"alert":5,"badge":"3"}})", std::nullopt, std::nullopt},
      {R"({"aps":{"alert":{"title":"t"},"badge":-2}})", std::nullopt, -2},
      {R"({"aps":{"badge":18446744073709551615}})", std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.payload);
    UserInfoParser parser(payload(c.payload));
    EXPECT_EQ(*parser.getBody(), c.body);
    EXPECT_EQ(*parser.getBadge(), c.badge);
  }
  UserInfoParser noAps(payload(R"({"custom":{"bad":{"nested":true}}})"));
  EXPECT_EQ(noAps.getBody().error().message(), "Body not recognized in aps");
  EXPECT_EQ(noAps.getSound().error().message(), "Sound not recognized in aps");
  EXPECT_EQ(noAps.getBadge().error().message(), "Badge not recognized in aps");
  // A dictionary the simple object refuses is no custom fields at all.
  EXPECT_FALSE(noAps.getCustomFields());
}

TEST(PushParserTest, UrlsAreTheUrisOfRfc3986WithAWebScheme) {
  struct Case {
    const char* url;
    bool accepted;
  };
  const Case cases[] = {
      {"http:foo", true},  // a URI of scheme http and path "foo"
      {"https://ostrel.test", true},
      {"https://", true},  // an empty registered name is one
      {"https://u:p@[::ffff:1.2.3.4]:8080/a/b;c?q=1/?#frag/?", true},
      {"http://[2001:db8::7]/", true},
      {"http://[1:2:3:4:5:6:7:8]/", true},
      {"http://[v7.a:b]/", true},
      {"https://x.y/%41%6a/~a-b_c.d!$&'()*+,;=:@", true},
      {"http://1.2.3.4:/", true},
      {"//ostrel.test/p", false},  // a relative reference has no scheme
      {"/p", false},
      {"http//x.y", false},
      {"https://a b", false},
      {"https://x.y/%4g", false},
      {"https://x.y/%4", false},
      {"https://[::1", false},
      {"https://[1:2:3:4:5:6:7:8:9]/", false},
      {"https://[1::2::3]/", false},
      {"https://[::1.2.3.256]/", false},
      {"https://x.y:8o/", false},
      {"https://x.y/#a#b", false},
      {"https://a@b@c/", false},
      {"https://caf\xc3\xa9.test/", false},  // outside ASCII: a URI percent-encodes it
      {"HTTPS://a.b", false},                // the scheme is compared as written
      {"ftp://a.b", false},
      {"", false},
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

TEST(PushArchiveTest, EveryPushRoundTrips) {
  test::TestPlatform platform;
  const char* payloads[] = {
      R"({"aps":{"t":"P"},"push_id":"p"})",
      R"({"aps":{"t":"N","alert":"b","badge":1,"sound":"s"},"push_id":"n","custom":{"k":1.5}})",
      R"({"aps":{"t":"N","alert":"b"},"push_id":"n2"})",
      R"({"aps":{"t":"U","alert":"b"},"push_id":"u","url":"http://x.y/z"})",
      R"({"aps":{"t":"B","content-available":1},"push_id":"b","custom":{"k":"v"}})",
  };
  for (const char* text : payloads) {
    SCOPED_TRACE(text);
    auto push = OLPushBuilder::buildPushObject(payload(text), true);
    ASSERT_TRUE(push);
    auto back = decodePush(archivePush(**push));
    ASSERT_TRUE(back) << back.error().description();
    EXPECT_EQ((*back)->archiveClassName(), (*push)->archiveClassName());
    EXPECT_EQ((*back)->description(), (*push)->description());
  }
  EXPECT_FALSE(decodePush("garbage"));
}

TEST(PushEventsTest, AReasonIsAtMost256Characters) {
  test::TestPlatform platform;
  EXPECT_TRUE(OLPushRegisteredEvent::make(false, std::string(256, 'r'), "s", "u"));
  auto tooLong = OLPushRegisteredEvent::make(false, std::string(257, 'r'), "s", "u");
  ASSERT_FALSE(tooLong);
  EXPECT_TRUE(tooLong.error().is(LocalErrorCodes::EventCreationError, "reason string too long"));
  EXPECT_EQ((*tooLong.error().extra())["maxLength"], 256);
}

}  // namespace
}  // namespace ostrel
