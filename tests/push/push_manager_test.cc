// The push manager against the emulator over HTTPS: the device token follows
// the user, and pushes received, opened, scheduled and shown reach the service
// as events.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>

#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_push_manager.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"
#include "support/eventually.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class RecordingWebView : public platform::WebView {
 public:
  Result<void> show(const std::string& url, void*, void*) override {
    std::lock_guard lock(mutex);
    shown.push_back(url);
    return {};
  }
  std::mutex mutex;
  std::vector<std::string> shown;
};

class PushManagerTest : public ::testing::Test {
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
  std::vector<Json> flushed(const std::string& type) {
    std::vector<Json> out;
    for (int attempt = 0; attempt < 50 && out.empty(); ++attempt) {
      std::promise<void> done;
      facade_->flushEvents([&](std::optional<OLError>, std::optional<Json>) { done.set_value(); });
      done.get_future().wait();
      for (const auto& e : service_.events()) {
        if (e["event_type"] == type) out.push_back(e);
      }
      if (out.empty()) std::this_thread::sleep_for(20ms);
    }
    return out;
  }
  void login() { ASSERT_FALSE(test::EmulatorService::logIn(*facade_)); }

  test::TestPlatform platform_;
  test::EmulatorService service_;
  std::shared_ptr<RecordingWebView> webView_ = std::make_shared<RecordingWebView>();
  std::shared_ptr<Ostrel> facade_;
  std::shared_ptr<OLPushManager> push_;
};

TEST_F(PushManagerTest, TheTokenIsRegisteredAndFollowsTheUser) {
  EXPECT_EQ(*facade_->getPushManager(), push_);
  auto empty = push_->setDeviceToken("");
  ASSERT_FALSE(empty);
  EXPECT_TRUE(empty.error().is(LocalErrorCodes::PushNotificationError, "Token not recognized"));

  ASSERT_TRUE(push_->setDeviceToken(std::string("\x0a\xff\x10\x00", 4)));
  waitForRegistrations(1);
  const std::string anonymous = *facade_->getUserToken();
  EXPECT_EQ(registrations()[0]["token"], "0aff1000");
  EXPECT_EQ(registrations()[0]["user_id"], anonymous);
  const std::string os = registrations()[0]["os_type"];
  EXPECT_FALSE(os.empty());
  EXPECT_TRUE(std::none_of(os.begin(), os.end(), [](char c) { return std::isupper(c); })) << os;
  EXPECT_TRUE(test::eventually([&] { return push_->isRegistered(); }));
  EXPECT_TRUE(platform_.log().contains("Registration of Device Token on Client End went well"));

  login();
  waitForRegistrations(2);
  EXPECT_EQ(registrations()[1]["user_id"], *facade_->getUserToken());
  EXPECT_NE(registrations()[1]["user_id"], anonymous);
  EXPECT_TRUE(
      platform_.log().contains("Login has been made. Register to Ostrel with the new userId"));

  ASSERT_TRUE(facade_->userLogout());
  waitForRegistrations(3);
  EXPECT_EQ(registrations()[2]["user_id"], anonymous);
}

TEST_F(PushManagerTest, RegistrationFailuresBecomeEvents) {
  // This desktop has no push service.
  push_->registerDevice();
  service_.failNext("/push/registration", 500);
  ASSERT_TRUE(push_->setDeviceToken("\x01"));
  auto events = flushed("push registered");
  for (int i = 0; i < 50 && events.size() < 2; ++i) {
    std::this_thread::sleep_for(20ms);
    events = flushed("push registered");
  }
  ASSERT_EQ(events.size(), 2u);
  std::vector<std::string> reasons;
  for (const auto& e : events) {
    EXPECT_EQ(e["succeeded"], false);
    reasons.push_back(e["reason"].get<std::string>());
  }
  EXPECT_TRUE(std::any_of(reasons.begin(), reasons.end(), [](const std::string& r) {
    return r.find("Remote notifications are not available on this device") != std::string::npos;
  }));
  EXPECT_FALSE(push_->isRegistered());
  EXPECT_TRUE(platform_.log().contains("Error in device registration "));
}

TEST_F(PushManagerTest, ReceivedOpenedScheduledAndShownPushesAreRecorded) {
  std::vector<std::shared_ptr<OLPushBase>> seen;
  std::mutex mutex;
  push_->setPushCallback([&](std::shared_ptr<OLPushBase> p) {
    std::lock_guard lock(mutex);
    seen.push_back(std::move(p));
  });
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(R"({"aps":{"t":"N","alert":"hi"},"push_id":"n1"})"), false));
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(
          R"({"aps":{"t":"U","alert":"look"},"push_id":"u1","url":"https://ostrel.test/x"})"),
      true));
  auto refused = push_->processRemoteNotification(*parseJson(R"({"aps":{"t":"Z"}})"), false);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().message(), "Push Type not recognized");

  ASSERT_TRUE(push_->showInterstitialContent(nullptr, nullptr));
  EXPECT_EQ(webView_->shown, std::vector<std::string>{"https://ostrel.test/x"});
  // Shown once: there is nothing left to show.
  EXPECT_FALSE(push_->showInterstitialContent(nullptr, nullptr));

  auto builder = push_->getPushBuilder();
  ASSERT_TRUE(
      builder.setBody("later").setDate(platform_.clock().now() + 3600).scheduleLocalStandardPush());

  std::vector<Json> events;
  for (int i = 0; i < 50 && events.size() < 4; ++i) events = flushed("push received");
  ASSERT_EQ(events.size(), 4u);
  std::vector<std::tuple<std::string, std::string, std::string, bool>> got;
  for (const auto& e : events) {
    got.emplace_back(e["push_id"], e["push_type"], e["push_action"], e["is_local"]);
  }
  EXPECT_EQ(got[0], std::make_tuple(std::string("n1"), std::string("standard"),
                                    std::string("notified"), false));
  EXPECT_EQ(got[1],
            std::make_tuple(std::string("u1"), std::string("url"), std::string("opened"), false));
  EXPECT_EQ(got[2], std::make_tuple(std::string("u1"), std::string("url"), std::string("url_shown"),
                                    false));
  EXPECT_EQ(std::get<2>(got[3]), "scheduled");
  EXPECT_EQ(std::get<3>(got[3]), true);
  std::lock_guard lock(mutex);
  EXPECT_EQ(seen.size(), 2u);
}

TEST_F(PushManagerTest, TheLaunchPushWaitsForTheCallback) {
  LaunchOptions launch;
  launch.remoteNotification = *parseJson(R"({"aps":{"t":"P"},"push_id":"launch"})");
  push_->setNotifyLaunchOptions(launch);
  std::promise<std::shared_ptr<OLPushBase>> got;
  push_->setPushCallback([&](std::shared_ptr<OLPushBase> p) { got.set_value(p); });
  auto f = got.get_future();
  ASSERT_EQ(f.wait_for(5s), std::future_status::ready);
  auto p = f.get();
  EXPECT_EQ(p->pushId, "launch");
  EXPECT_TRUE(p->shown);
  auto opened = flushed("push received");
  ASSERT_EQ(opened.size(), 1u);
  EXPECT_EQ(opened[0]["push_action"], "opened");
}

TEST_F(PushManagerTest, AnUnseenUrlPushComesBackAfterTermination) {
  ASSERT_TRUE(push_->processRemoteNotification(
      *parseJson(
          R"({"aps":{"t":"U","alert":"read"},"push_id":"u9","url":"https://ostrel.test/r"})"),
      false));
  platform_.platform().lifeCycle->willTerminate();
  auto pending = platform_.platform().localNotifications->pending();
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(pending[0].userInfo["url"], "https://ostrel.test/r");
  EXPECT_EQ(pending[0].alertBody, "read");
}

}  // namespace
}  // namespace ostrel
