#include <gtest/gtest.h>

#include "ostrel/ol_notification.h"

namespace ostrel {
namespace {

TEST(NotificationTest, ObserversFilterByNameAndSenderAndAreClearedByName) {
  int any = 0, fromSender = 0;
  int sender = 0, other = 0;
  addNamedObserver(OLNotification::AnalyticEventAdded, "test.any", nullptr,
                   [&](const Notification& n) {
                     any++;
                     EXPECT_EQ(n.userInfo["k"], "v");
                   });
  addNamedObserver(OLNotification::AnalyticEventAdded, "test.sender", &sender,
                   [&](const Notification&) { fromSender++; });
  notify(OLNotification::AnalyticEventAdded, &other, Json{{"k", "v"}});
  notify(OLNotification::AnalyticEventAdded, &sender, Json{{"k", "v"}});
  notify(OLNotification::AnalyticEventsFlushed, &sender, Json{{"k", "x"}});
  EXPECT_EQ(any, 2);
  EXPECT_EQ(fromSender, 1);

  clearObserver(OLNotification::AnalyticEventAdded, "test.any");
  notify(OLNotification::AnalyticEventAdded, &sender, Json{{"k", "v"}});
  EXPECT_EQ(any, 2);
  EXPECT_EQ(fromSender, 2);
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
