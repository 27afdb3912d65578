#include <gtest/gtest.h>

#include <cstdlib>

#include "events/content_events.h"
#include "events/event_archive.h"
#include "events/flow_events.h"
#include "events/internal_events.h"
#include "events/push_events.h"
#include "ostrel/ol_simple_object.h"
#include "platform/defaults.h"
#include "support/every_event.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

using FixedZone = test::ZoneClock;

std::vector<std::string> keys(const Json& d) {
  std::vector<std::string> out;
  for (const auto& [k, v] : d.items()) out.push_back(k);
  return out;
}

class EventsTest : public ::testing::Test {
 protected:
  test::TestPlatform platform_;
  FixedZone utc_{0};
};

TEST_F(EventsTest, NameRule) {
  struct Case {
    std::string name;
    bool passes;
  };
  const Case cases[] = {
      {std::string(32, 'a'), true},
      {std::string(33, 'a'), false},
      {"a-b_c1", true},
      {"a b", false},
      {"", false},
      {"good\nbad name", true},
      // Every Unicode line break ends a line, not only LF, CR and CRLF: NEL.
      {"ok\xC2\x85not ok!", true},
      // Word characters of every script: letters, combining marks (spacing or
      // not: Hindi has both), joiners, digits.
      {"\xE0\xA4\xB9\xE0\xA4\xBF\xE0\xA4\xA8\xE0\xA5\x8D\xE0\xA4\xA6\xE0\xA5\x80", true},  // हिन्दी
      {"a\u200Db", true},        // a ZWJ b
      {"a\u200Cb", true},        // a ZWNJ b
      {"x\xE2\x80\xBFy", true},  // connector punctuation
      {"\xC2\xBD", false},       // ½ is a number, not a digit
      {"a\u200Bb", false},       // zero-width space
      {"\xff\xfe", false},
      // Only as many UTF-16 units as the name has characters are searched:
      // the emoji's second half lies outside that range.
      {"emoji\xF0\x9F\x98\x80", true},
  };
  for (const auto& c : cases) {
    auto e = OLCustomEvent::make(c.name, "s", "u", nullptr);
    EXPECT_EQ(e.has_value(), c.passes) << c.name.substr(0, 40);
    if (!e) {
      EXPECT_TRUE(e.error().is(LocalErrorCodes::EventCreationError, "Name not matching regex"));
      EXPECT_EQ((*e.error().extra())["pattern"], "^[\\w-]{1,32}$");
    }
  }
}

TEST_F(EventsTest, DateTextInSeveralTimeZones) {
  struct Case {
    double instant;
    long offset;
    std::string text;
  };
  const Case cases[] = {
      {1478178309.75, -9000, "2016-11-03T10:35:09-02:30"},  // St. John's in summer
      {1478178309.75, 50400, "2016-11-04T03:05:09+14:00"},  // Kiritimati: next day
      {-0.5, 0, "1969-12-31T23:59:59Z"},                    // seconds are rounded down
  };
  for (const auto& c : cases) {
    EXPECT_EQ(OLBaseEvent::formatDate(c.instant, FixedZone(c.offset)), c.text) << c.offset;
  }
  // The default clock follows the process's time zone.
  ::setenv("TZ", "America/St_Johns", 1);
  ::tzset();
  EXPECT_EQ(OLBaseEvent::formatDate(1478178309.75, *platform::makeSystemClock()),
            "2016-11-03T10:35:09-02:30");
  ::unsetenv("TZ");
  ::tzset();
}

TEST_F(EventsTest, DictionariesHaveTheirKeysInOrder) {
  auto data = OLSimpleObject::fromJSONString(R"({"k":"v"})");
  DeviceInformation device(platform::DeviceFactsSnapshot{});
  using Keys = std::vector<std::string>;
  const Keys base = {"event_type", "session_id", "creation_date", "user_id"};
  auto with = [&](Keys extra) {
    Keys k = base;
    k.insert(k.end(), extra.begin(), extra.end());
    return k;
  };
  Keys sessionKeys = base;
  for (auto& k : keys(device.getDeviceInformationDictionary())) sessionKeys.push_back(k);
  sessionKeys.push_back("app_installed");

  struct Case {
    std::shared_ptr<OLBaseEvent> event;
    Keys keys;
  };
  const Case cases[] = {
      {*OLCustomEvent::make("n", "s", "u", nullptr), with({"name"})},
      {*OLCustomEvent::make("n", "s", "u", data), with({"name", "custom_data"})},
      {*OLSessionEvent::make("s", "u", device, true, nullptr, std::nullopt), sessionKeys},
      {*OLIdentifyEvent::make("s", "u", data, LoginType::custom),
       with({"custom_data", "login_type"})},
      {*OLLogoutEvent::make("s", "u", LogoutType::delete_), with({"login_type"})},
      {*OLTimersHearbeat::make(10, {"a", "b"}, "s", "u"), with({"name", "period", "timers"})},
      {*OLFlowEvent::make("F", "f", "s", "u", nullptr), with({"name", "flow_id"})},
      {*OLTimedEvent::make("t", "s", "u", nullptr), with({"name"})},
      {*OLRankingContentEvent::make("s", "u", "abc", RankingScope(_RankingScope::social), 1.5f),
       with({"content_id", "scope", "multiplier"})},
      {*OLAttachSessionEvent::make("s", "u", AttachType::peer, "other", std::nullopt, nullptr),
       with({"attach_session_id", "attach_session_type"})},
  };
  for (const auto& c : cases)
    EXPECT_EQ(keys(c.event->getEventDictionary(utc_)), c.keys) << c.event->eventType;

  auto identify = *OLIdentifyEvent::make("s", "u", nullptr, LoginType::custom);
  EXPECT_EQ(identify->getEventDictionary(utc_)["login_type"], "CUSTOM");
  auto custom = *OLCustomEvent::make("n", "s", "u", nullptr);
  custom->creationDate = 1478181909.123456;
  EXPECT_EQ(custom->uniqueName(), "1478181909123456-event-custom_event");
  EXPECT_EQ(custom->getEventDictionary(utc_)["creation_date"], "2016-11-03T14:05:09Z");
}

TEST_F(EventsTest, RefusedEvents) {
  struct Case {
    Result<void> result;
    std::string message;
  };
  auto voidOf = [](auto r) -> Result<void> {
    if (!r) return r.error();
    return {};
  };
  const Case cases[] = {
      {voidOf(OLIdentifyEvent::make("s", "u", nullptr, LoginType::unknown)),
       "Identify event must have a known login Type"},
      {voidOf(OLLogoutEvent::make("s", "u", LogoutType::unknown)),
       "Identify event must have a known logout Type"},
      {voidOf(OLTimersHearbeat::make(10, {}, "s", "u")), "There must be at least one timer"},
      {voidOf(OLRankingContentEvent::make("s", "u", "ab", RankingScope(_RankingScope::social), 1)),
       "ContentId too short"},
      {voidOf(
           OLRankingContentEvent::make("s", "u", "abc", RankingScope(_RankingScope::unknown), 1)),
       "Scope must be specified"},
      {voidOf(
           OLAttachSessionEvent::make("s", "u", AttachType::unknown, "x", std::nullopt, nullptr)),
       "Attached Session type unknown"},
      {voidOf(OLAttachSessionEvent::make("s", "u", AttachType::master, "", std::nullopt, nullptr)),
       "Attached Session Identifier cannot be empty"},
      {voidOf(OLAttachSessionEvent::make("s", "u", AttachType::master, "x", "X_42", nullptr)),
       "Attached User Identifier is not valid"},
  };
  for (const auto& c : cases) {
    ASSERT_FALSE(c.result) << c.message;
    EXPECT_TRUE(c.result.error().is(LocalErrorCodes::EventCreationError, c.message))
        << c.result.error().description();
  }
}

TEST_F(EventsTest, FlowsAndTimers) {
  auto flow =
      *OLFlowEvent::make(makeUuid(*platform_.platform().crypto), "checkout", "s", "u", nullptr);
  const std::string id = flow->flowId;
  EXPECT_EQ(id.size(), 36u);
  EXPECT_EQ(id.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
  ASSERT_TRUE(flow->flowSucceed("paid", nullptr, 0));
  auto again = flow->flowSucceed("paid", nullptr, 0);
  ASSERT_FALSE(again);
  EXPECT_TRUE(again.error().is(LocalErrorCodes::EventFlowInconsistance,
                               "Cannot finish an event never started"));

  auto other = *OLFlowEvent::make("F", "f", "s", "u", nullptr);
  auto blank = other->flowSucceed("with blank", nullptr, 0);
  ASSERT_FALSE(blank);
  EXPECT_EQ(blank.error().message(), "Name not matching regex");
  EXPECT_EQ(other->flowStatus, FlowStatus::Succeeded) << "the stage stays changed";

  auto timer = *OLTimedEvent::make("load", "s", "u", nullptr);
  timer->creationDate = 1000;
  ASSERT_TRUE(timer->stop(nullptr, 1001.5));
  auto d = timer->getEventDictionary(utc_);
  EXPECT_EQ(d["delta"], 1.5);
  EXPECT_EQ(d["end"], "1970-01-01T00:16:41Z");
  auto twice = timer->stop(nullptr, 1002);
  ASSERT_FALSE(twice);
  EXPECT_TRUE(twice.error().is(LocalErrorCodes::EventTimedInconsistance,
                               "Cannot Stop a Timed Event not started"));
  auto started = *OLTimedEvent::make("t", "s", "u", nullptr);
  EXPECT_FALSE(started->getEventDictionary(utc_).contains("end"));
}

TEST_F(EventsTest, EveryClassRoundTripsThroughItsArchive) {
  for (const auto& e : test::oneEventOfEachClass()) {
    auto back = decodeEvent(archivedBytes(*e));
    ASSERT_TRUE(back) << e->archiveClassName() << ": " << back.error().description();
    EXPECT_EQ((*back)->getEventDictionary(utc_), e->getEventDictionary(utc_))
        << e->archiveClassName();
    EXPECT_EQ((*back)->uniqueName(), e->uniqueName());
  }
}

// The simple object writes its floats the same way (its own test has 1.1).
TEST_F(EventsTest, RankingMultiplierGoesOutInItsShortestDecimalForm) {
  const std::pair<float, const char*> cases[] = {
      {1.1f, "1.1"}, {-0.3f, "-0.3"}, {1e-45f, "1e-45"}, {3.4028235e38f, "3.4028235e+38"}};
  for (const auto& [multiplier, text] : cases) {
    auto ranking = *OLRankingContentEvent::make("s", "u", "abc",
                                                RankingScope(_RankingScope::social), multiplier);
    EXPECT_EQ(dumpJson(ranking->getEventDictionary(utc_)["multiplier"]), text);
  }
}

TEST_F(EventsTest, CorruptArchivesYieldNoEvent) {
  auto logout = *OLLogoutEvent::make("s", "u", LogoutType::refresh);
  ArchiveWriter unknownKind("Ostrel.OLLogoutEvent");
  logout->encode(unknownKind);
  unknownKind.encodeString("logout_type", "sideways");
  ArchiveWriter missingBase("Ostrel.OLCustomEvent");
  missingBase.encodeString("name", "n");
  ArchiveWriter wrongType("Ostrel.OLCustomEvent");
  (*OLCustomEvent::make("n", "s", "u", nullptr))->encode(wrongType);
  wrongType.encodeInt("creation_date", 5);  // an integer still reads as a date
  wrongType.encodeBool("user_id", true);
  ArchiveWriter unknownClass("Ostrel.OLMysteryEvent");
  // Found by fuzzing: a date no calendar holds reached the date formatter.
  ArchiveWriter farDate("Ostrel.OLLogoutEvent");
  logout->encode(farDate);
  farDate.encodeDate("creation_date", -3.83491e+105);
  for (const std::string& bytes : {unknownKind.bytes(), missingBase.bytes(), wrongType.bytes(),
                                   unknownClass.bytes(), farDate.bytes()}) {
    EXPECT_FALSE(decodeEvent(bytes));
  }
}

}  // namespace
}  // namespace ostrel
