// A host on the default platform, as an application on Linux writes it: its
// own identity in Platform::app, its own life cycle object that it posts to,
// the real files, HTTP client and timers. One test, since the shared instance
// lives as long as the process.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "ostrel/diagnostics.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"
#include "support/eventually.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

TEST(HostLifeTest, IdentityAndLifeCycleOfAHostOnTheDefaultPlatform) {
  test::EmulatorService service;
  test::TempDir dir;
  const auto& info = service.emulator().info();
  auto log = std::make_shared<test::CapturingLogSink>();
  auto lifeCycle = std::make_shared<platform::AppLifeCycle>();
  Platform platform;
  platform.deployment.domain = info.domain;
  platform.network.connectTo = "127.0.0.1:" + std::to_string(info.port);
  platform.network.caFile = info.caFile;
  platform.storageRoot = dir.path() + "/Ostrel";
  platform.log = log;
  platform.lifeCycle = lifeCycle;

  // An identity that cannot go into a request is refused at start-up, naming
  // the field, and does not spend the one creation.
  const struct {
    AppInfo app;
    const char* message;
  } refused[] = {
      {{"io.ostrel\nhost", "", "", {}}, "Invalid application identifier"},
      {{"", "\xff\xfe", "", {}}, "Invalid application version"},
      {{"", "", std::string(257, '7'), {}}, "Invalid application build"},
  };
  for (const auto& r : refused) {
    Platform bad = platform;
    bad.app = r.app;
    auto started = Ostrel::getSharedInstanceWithConfig("demo_secret", nullptr, std::nullopt, bad);
    ASSERT_FALSE(started);
    EXPECT_TRUE(started.error().is(LocalErrorCodes::OstrelInitializationError, r.message))
        << started.error().description();
  }

  // A development build may use the sandbox secret without the release warning.
  platform.app = {"io.ostrel.host", "3.2", "321", true};
  auto started =
      Ostrel::getSharedInstanceWithConfig("demo_secret", nullptr, std::nullopt, platform);
  ASSERT_TRUE(started) << started.error().description();
  Ostrel& ostrel = **started;
  EXPECT_EQ(ostrel.environmentString(), "PROD-SANDBOX");
  EXPECT_FALSE(log->contains("Warning using sandbox environment in a Release application!!"));

  // The identity reaches the session start, the push registration and receipts.
  ASSERT_FALSE(test::EmulatorService::flush(ostrel));
  const auto starts = service.events("start session");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(starts[0]["app_identifier"], "io.ostrel.host") << starts[0].dump();
  EXPECT_EQ(starts[0]["app_version"], "3.2");
  auto push = ostrel.getPushManager();
  ASSERT_TRUE(push);
  ASSERT_TRUE((*push)->setDeviceToken("\x01\x02\x03\x04"));
  ASSERT_TRUE(test::eventually([&] { return service.requestsTo("/push/registration") > 0; }));
  const Json registration =
      Json::parse(service.emulator().requestBodies("/push/registration").back());
  EXPECT_EQ(registration["app_version"], "3.2");
  EXPECT_EQ(registration["app_build"], "321");
  const std::string receiptFile = dir.path() + "/receipt";
  std::ofstream(receiptFile) << "receipt bytes";
  auto payments = ostrel.getPaymentManager();
  ASSERT_TRUE(payments);
  auto receipt = (*payments)->serializePayment(std::string(32, 'o'), receiptFile);
  ASSERT_TRUE(receipt) << receipt.error().description();
  EXPECT_EQ(Json::parse(*receipt)["applicationId"], "io.ostrel.host");

  // Background holds the queue; foreground sends what waited.
  lifeCycle->didEnterBackground();
  for (int i = 0; i < 12; ++i) ASSERT_TRUE(ostrel.sendEvent("while_away"));
  ASSERT_TRUE(ostrel.waitUntilPersisted(5s));
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(service.named("while_away"), 0);
  lifeCycle->willEnterForeground();
  EXPECT_TRUE(test::eventually([&] { return service.named("while_away") == 12; }));

  // Termination stops the library in order: what was accepted before is on
  // disk or delivered, later calls are refused.
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(ostrel.sendEvent("before_end"));
  lifeCycle->willTerminate();
  EXPECT_TRUE(test::eventually([&] { return !ostrel.sendEvent("after_end"); }));
  auto refusedAfter = ostrel.sendEvent("after_end");
  ASSERT_FALSE(refusedAfter);
  EXPECT_TRUE(refusedAfter.error().is(LocalErrorCodes::OstrelNotInitialized));
  const Json queue = diagnostics::describeQueue(platform, *platform.storageRoot);
  int kept = 0;
  for (const auto& chunk : queue["chunks"])
    for (const auto& e : chunk["events"]) kept += e["event"].value("name", "") == "before_end";
  for (const auto& e : queue["intake"]) kept += e["event"].value("name", "") == "before_end";
  EXPECT_GE(kept + service.named("before_end"), 5) << queue.dump();
}

}  // namespace
}  // namespace ostrel
