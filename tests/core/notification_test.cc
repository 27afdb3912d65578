#include <gtest/gtest.h>

#include "ostrel/ol_notification.h"

namespace ostrel {
namespace {

TEST(NotificationTest, NamedObserversAndSenders) {
  int a = 0, b = 0, fromSender = 0;
  int sender = 0, other = 0;
  addNamedObserver(OLNotification::AnalyticEventAdded, "test.a", nullptr,
                   [&](const Notification& n) {
                     a++;
                     EXPECT_EQ(n.userInfo["k"], "v");
                   });
  addNamedObserver(OLNotification::AnalyticEventAdded, "test.b", nullptr,
                   [&](const Notification&) { b++; });
  addNamedObserver(OLNotification::AnalyticEventAdded, "test.sender", &sender,
                   [&](const Notification&) { fromSender++; });
  notify(OLNotification::AnalyticEventAdded, &other, Json{{"k", "v"}});
  notify(OLNotification::AnalyticEventAdded, &sender, Json{{"k", "v"}});
  notify(OLNotification::AnalyticEventsFlushed, &sender, Json{{"k", "x"}});
  EXPECT_EQ(a, 2);
  EXPECT_EQ(b, 2);
  EXPECT_EQ(fromSender, 1);

  clearObserver(OLNotification::AnalyticEventAdded, "test.a");
  notify(OLNotification::AnalyticEventAdded, nullptr, Json{{"k", "v"}});
  EXPECT_EQ(a, 2);
  EXPECT_EQ(b, 3);
  clearObserver(OLNotification::AnalyticEventAdded, "test.b");
  clearObserver(OLNotification::AnalyticEventAdded, "test.sender");
}

TEST(NotificationTest, AnObserverMayRemoveItselfWhileFiring) {
  int fired = 0;
  addNamedObserver(OLNotification::UserLoginStateChanged, "test.once", nullptr,
                   [&](const Notification&) {
                     fired++;
                     clearObserver(OLNotification::UserLoginStateChanged, "test.once");
                   });
  notify(OLNotification::UserLoginStateChanged);
  notify(OLNotification::UserLoginStateChanged);
  EXPECT_EQ(fired, 1);
}

}  // namespace
}  // namespace ostrel
