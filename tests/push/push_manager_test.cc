// The push manager against the emulator over HTTPS: the device token follows
// the user, and pushes received, opened, scheduled and shown reach the service
// as events.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_push_manager.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "support/recorder.h"

namespace ostrel {
namespace {

class RecordingWebView : public platform::WebView, public test::Recorder<std::string> {
 public:
  Result<void> show(const std::string& url, void*, void*) override {
    add(url);
    return {};
  }
};

// The ids handed to a callback, in the order it saw them.
class Collector : public test::Recorder<std::string> {
 public:
  OLPushManager::PushCallback callback() {
    return [this](std::shared_ptr<OLPushBase> p) { add(p->pushId); };
  }
};

Json ping(const std::string& id) {
  return Json{{"aps", {{"t", "P"}}}, {"push_id", id}};
}

class PushManagerTest : public test::EmulatorTest {
 protected:
  void SetUp() override {
    Platform p = service_.platformFor(platform_);
    p.webView = webView_;
    facade_ = *Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, p);
    push_ = *facade_->getPushManager();
  }
  // Registrations on the emulator, oldest first.
  std::vector<Json> registrations() {
    Json newest = service_.emulator().store().pushRegistrations();
    return {newest.rbegin(), newest.rend()};
  }
  void waitForRegistrations(std::size_t n) {
    ASSERT_TRUE(test::eventually([&] { return registrations().size() >= n; }));
    ASSERT_EQ(registrations().size(), n);
  }
  // The events of `type` the service holds, flushing until there are `n`.
  std::vector<Json> flushed(const std::string& type, std::size_t n = 1) {
    (void)test::eventually([&] {
      (void)test::EmulatorService::flush(*facade_);
      return service_.events(type).size() >= n;
    });
    return service_.events(type);
  }

  std::shared_ptr<RecordingWebView> webView_ = std::make_shared<RecordingWebView>();
  std::shared_ptr<Ostrel> facade_;
  std::shared_ptr<OLPushManager> push_;
};

TEST_F(PushManagerTest, TheTokenIsRegisteredAndFollowsTheUser) {
  EXPECT_EQ(*facade_->getPushManager(), push_);  // one manager holds the pushes that wait
  auto empty = push_->setDeviceToken("");
  ASSERT_FALSE(empty);
  EXPECT_TRUE(empty.error().is(LocalErrorCodes::PushNotificationError, "Token not recognized"));

  ASSERT_TRUE(push_->setDeviceToken(std::string("\x0a\xff\x10\x00", 4)));
  waitForRegistrations(1);
  const std::string anonymous = *facade_->getUserToken();
  EXPECT_EQ(registrations()[0]["token"], "0aff1000");
  EXPECT_EQ(registrations()[0]["user_id"], anonymous);
  EXPECT_TRUE(test::eventually([&] { return push_->isRegistered(); }));

  ASSERT_FALSE(test::EmulatorService::logIn(*facade_));
  waitForRegistrations(2);
  EXPECT_EQ(registrations()[1]["user_id"], *facade_->getUserToken());

  ASSERT_TRUE(facade_->userLogout());
  waitForRegistrations(3);
  EXPECT_EQ(registrations()[2]["user_id"], anonymous);
}

TEST_F(PushManagerTest, RegistrationFailuresBecomeEvents) {
  // This desktop has no push service.
  push_->registerDevice();
  service_.failNext("/push/registration", 500);
  ASSERT_TRUE(push_->setDeviceToken("\x01"));
  // A description beyond the event's 256 characters is cut, not lost.
  const auto longError = OLError::LocalError(
      LocalErrorCodes::PushNotificationDeviceRegistrationError, std::string(300, 'm'));
  push_->setRegistrationError(longError);
  auto events = flushed("push registered", 3);
  ASSERT_EQ(events.size(), 3u);
  bool cut = false, unavailable = false;
  for (const auto& e : events) {
    EXPECT_EQ(e["succeeded"], false);
    const std::string reason = e["reason"];
    cut |= reason == longError.description().substr(0, 256);
    unavailable |=
        reason.find("Remote notifications are not available on this device") != std::string::npos;
  }
  EXPECT_TRUE(cut);
  EXPECT_TRUE(unavailable);
  EXPECT_FALSE(push_->isRegistered());
}

// Which payloads are refused is the parser's; handing over to the callback is
// tested below.
TEST_F(PushManagerTest, ReceivedOpenedScheduledAndShownPushesAreRecorded) {
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(R"({"aps":{"t":"N","alert":"hi"},"push_id":"n1"})"), false));
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(
          R"({"aps":{"t":"U","alert":"look"},"push_id":"u1","url":"https://ostrel.test/x"})"),
      true));

  ASSERT_TRUE(push_->showInterstitialContent(nullptr, nullptr));
  EXPECT_EQ(webView_->values(), std::vector<std::string>{"https://ostrel.test/x"});
  // Shown once: there is nothing left to show.
  EXPECT_FALSE(push_->showInterstitialContent(nullptr, nullptr));

  auto builder = push_->getPushBuilder();
  ASSERT_TRUE(
      builder.setBody("later").setDate(platform_.clock().now() + 3600).scheduleLocalStandardPush());

  auto events = flushed("push received", 4);
  ASSERT_EQ(events.size(), 4u);
  const Json expected[] = {{"n1", "standard", "notified", false},
                           {"u1", "url", "opened", false},
                           {"u1", "url", "url_shown", false}};
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    const Json& e = events[i];
    EXPECT_EQ(Json::array({e["push_id"], e["push_type"], e["push_action"], e["is_local"]}),
              expected[i]);
  }
  EXPECT_EQ(events[3]["push_action"], "scheduled");
  EXPECT_EQ(events[3]["is_local"], true);
}

TEST_F(PushManagerTest, TheLaunchPushWaitsForTheCallback) {
  LaunchOptions launch;
  launch.remoteNotification = *parseJson(R"({"aps":{"t":"P"},"push_id":"launch"})");
  push_->setNotifyLaunchOptions(launch);
  auto p =
      test::await<std::shared_ptr<OLPushBase>>([&](auto done) { push_->setPushCallback(done); });
  EXPECT_EQ(p->pushId, "launch");
  EXPECT_TRUE(p->shown);  // the user opened it to launch the app
}

TEST_F(PushManagerTest, APushIsHandedOverEvenWhenItsEventCannotBeRecorded) {
  Collector seen;
  push_->setPushCallback(seen.callback());
  facade_.reset();  // the queue manager goes with the facade
  auto handled = push_->processRemoteNotification(ping("orphan"));
  ASSERT_FALSE(handled);
  EXPECT_EQ(handled.error().localCode(), LocalErrorCodes::InvalidQueueHandler);
  EXPECT_EQ(seen.values(), std::vector<std::string>{"orphan"});
}

TEST_F(PushManagerTest, WaitingPushesReachTheNextCallbackInArrivalOrderAfterARestart) {
  std::vector<std::string> sent;
  for (int i = 0; i < 8; ++i) {
    sent.push_back("w" + std::to_string(i));
    ASSERT_TRUE(push_->processRemoteNotification(ping(sent.back())));
  }
  // The app stops before it sets a callback; the next run takes the pushes over.
  push_.reset();
  facade_.reset();
  SetUp();
  Collector seen;
  push_->setPushCallback(seen.callback());
  EXPECT_EQ(seen.values(), sent);
  Collector again;
  push_->setPushCallback(again.callback());
  EXPECT_TRUE(again.values().empty()) << "handed over once";
}

TEST_F(PushManagerTest, PushesArrivingWhileCallbacksAreSetAreHandedOverOnceInOrder) {
  constexpr int kProducers = 3, kEach = 30;
  Collector seen;
  std::atomic<int> sent{0};
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kEach; ++i) {
        EXPECT_TRUE(push_->processRemoteNotification(
            ping(std::to_string(p) + ":" + std::to_string(100 + i))));
        ++sent;
      }
    });
  }
  // Two callbacks set at once, while pushes keep arriving and some already wait.
  for (int s = 0; s < 2; ++s) {
    threads.emplace_back([&] {
      while (sent < kProducers * 5) std::this_thread::yield();
      push_->setPushCallback(seen.callback());
    });
  }
  for (auto& t : threads) t.join();
  const auto ids = seen.values();
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(kProducers * kEach));
  std::map<std::string, std::string> last;  // producer -> last id seen
  for (const auto& id : ids) {
    const std::string producer = id.substr(0, id.find(':'));
    EXPECT_LT(last[producer], id) << "out of arrival order or twice";
    last[producer] = id;
  }
}

TEST_F(PushManagerTest, AnUnseenUrlPushComesBackAfterTermination) {
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(
          R"({"aps":{"t":"U","alert":"read"},"push_id":"u9","url":"https://ostrel.test/r"})"),
      false));
  platform_.platform().lifeCycle->willTerminate();
  auto& notifications = *platform_.platform().localNotifications;
  ASSERT_TRUE(test::eventually([&] { return notifications.pending().size() == 1u; }));
  auto pending = notifications.pending();
  EXPECT_EQ(pending[0].userInfo["url"], "https://ostrel.test/r");
  EXPECT_EQ(pending[0].alertBody, "read");
}

}  // namespace
}  // namespace ostrel
