// Local pushes: the builder's checks, what a scheduled notification holds,
// and delivery at the fire date, also by a later run of the app.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "ostrel/ostrel.h"
#include "platform/defaults.h"
#include "support/eventually.h"
#include "support/recorder.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

TEST(LocalPushTest, WhatCannotBeShownIsRefusedTheRestComesBackAsLocalPushes) {
  test::TestPlatform platform;
  platform.clock().set(1000);
  auto facade = *Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, platform.platform());
  auto push = *facade->getPushManager();
  struct Case {
    std::function<Result<void>(OLPushBuilder&)> schedule;
    std::function<void(OLPushBuilder&)> configure;
    const char* message;
  };
  const Case cases[] = {
      {&OLPushBuilder::scheduleLocalBackgroundPush,
       [](OLPushBuilder& b) { b.setBody("b").setUrl("https://x.y"); },
       "Local push cannot be silent"},
      {&OLPushBuilder::scheduleLocalStandardPush, [](OLPushBuilder& b) { b.setSound("s"); },
       "An alert body must be specified"},
      {&OLPushBuilder::scheduleLocalUrlPush, [](OLPushBuilder& b) { b.setBody("b"); },
       "An url must be specified"},
      {&OLPushBuilder::scheduleLocalUrlPush, [](OLPushBuilder& b) { b.setUrl("https://x.y"); },
       "An alert body must be specified"},
  };
  for (const auto& c : cases) {
    OLPushBuilder builder = push->getPushBuilder();
    c.configure(builder);
    auto scheduled = c.schedule(builder);
    ASSERT_FALSE(scheduled) << c.message;
    EXPECT_TRUE(scheduled.error().is(LocalErrorCodes::PushNotificationError, c.message));
  }
  EXPECT_TRUE(platform.platform().localNotifications->pending().empty());

  OLPushBuilder builder = push->getPushBuilder();
  builder.setBody("see this").setBadgeCounter(2).setSound("chime");
  builder.setDate(5000).setUrl("https://ostrel.test/page");
  ASSERT_TRUE(builder.scheduleLocalUrlPush());
  OLPushBuilder standard = push->getPushBuilder();
  standard.setBody("plain").setDate(6000).setCustomFields(
      OLSimpleObject::fromDictionary(Json{{"level", 3}}));
  ASSERT_TRUE(standard.scheduleLocalStandardPush());

  auto pending = platform.platform().localNotifications->pending();
  ASSERT_EQ(pending.size(), 2u);
  EXPECT_EQ(pending[0].fireDate, 5000);
  auto url = OLPushBuilder::buildPushObject(pending[0], false);
  ASSERT_TRUE(url);
  auto u = std::dynamic_pointer_cast<OLUrlPush>(*url);
  ASSERT_TRUE(u);
  EXPECT_EQ(u->url, "https://ostrel.test/page");
  EXPECT_EQ(u->body, "see this");
  EXPECT_EQ(u->pushId, pending[0].userInfo["push_id"]);

  auto s = OLPushBuilder::buildPushObject(pending[1], true);
  ASSERT_TRUE(s);
  EXPECT_EQ((*s)->type(), PushNotificationType::Standard);
  EXPECT_EQ(std::dynamic_pointer_cast<OLStandardPush>(*s)->customFields->getDictionary()["level"],
            3);

  platform::LocalNotification foreign;
  foreign.identifier = "other";
  foreign.userInfo = Json{{"from", "another library"}};
  auto refused = OLPushBuilder::buildPushObject(foreign, false);
  ASSERT_FALSE(refused);
  EXPECT_EQ((*refused.error().extra())["userInfo"], foreign.userInfo);
}

platform::LocalNotification reminder(const std::string& id, double fireDate) {
  platform::LocalNotification n;
  n.identifier = id;
  n.fireDate = fireDate;
  n.alertBody = id;
  n.userInfo = Json{{"push_id", id}};
  return n;
}

TEST(LocalPushTest, ANotificationDueWhileTheAppWasClosedComesOnTheNextRunALaterOneAtItsInstant) {
  test::TestPlatform platform;
  test::Recorder<std::string> delivered;  // outlives the stores that call in
  auto scheduler = platform::makeThreadScheduler();
  auto open = [&] {
    return platform::makeDesktopLocalNotifications(platform::makePosixFileSystem(platform.root()),
                                                   scheduler, platform.platform().clock);
  };
  // First run: scheduled, then the app ends before the fire date.
  platform.clock().set(100);
  ASSERT_TRUE(open()->schedule(reminder("come-back", 160)));
  // Second run, after the fire date: delivered once a handler listens, and only once.
  platform.clock().set(200);
  auto store = open();
  store->setDeliveryHandler(
      [&](const platform::LocalNotification& n) { delivered.add(n.alertBody.value_or("")); });
  ASSERT_TRUE(test::eventually([&] { return !delivered.values().empty(); }));
  ASSERT_TRUE(store->schedule(reminder("soon", 200.3)));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(delivered.values(), std::vector<std::string>{"come-back"});
  EXPECT_EQ(store->pending().size(), 1u) << "the later one waits";
  platform.clock().set(200.3);
  EXPECT_TRUE(test::eventually([&] { return delivered.values().size() == 2; }));
  EXPECT_EQ(delivered.values(), (std::vector<std::string>{"come-back", "soon"}));
}

}  // namespace
}  // namespace ostrel
