// The run-time status: session renewal and the single
// running-login slot; the user's stored state.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "core/device_information.h"
#include "login/autologin_expiry.h"
#include "login/msisdn_flows.h"
#include "login/ol_user_status.h"
#include "login/status_factory.h"
#include "ostrel/ol_simple_object.h"
#include "status/ol_status.h"
#include "support/emulator_service.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

class StatusTest : public ::testing::Test {
 protected:
  std::shared_ptr<OLStatus> makeStatus() {
    auto device = std::make_shared<DeviceInformation>();
    auto connectors = std::make_shared<ConnectorBuilder>(platform_.ref(), "id", "demo-secret",
                                                         false, false, false, 15);
    auto made =
        makeOstrelStatus(platform_.ref(), OstrelConfiguration{}, device, connectors, nullptr);
    return made ? *made : nullptr;
  }
  test::TestPlatform platform_;
};

TEST_F(StatusTest, AnExpiredSessionIsRenewedWithOneSessionStartNamingTheOld) {
  auto status = makeStatus();
  ASSERT_TRUE(status);
  std::vector<std::optional<std::string>> starts;
  std::mutex m;
  status->setSessionStartGenerator(
      [&](const std::string&, const DeviceInformation&, bool, std::shared_ptr<OLSimpleObject>,
          const std::optional<std::string>& refreshed) -> Result<void> {
        std::lock_guard lock(m);
        starts.push_back(refreshed);
        return {};
      });
  status->generateSessionStart(std::nullopt);
  const std::string first = status->sessionId();
  platform_.clock().advance(1800);
  EXPECT_EQ(status->sessionId(), first) << "exactly at the limit the session holds";
  platform_.clock().advance(0.5);
  std::vector<std::thread> readers;
  for (int i = 0; i < 8; ++i) readers.emplace_back([&] { (void)status->sessionId(); });
  for (auto& r : readers) r.join();
  const std::string second = status->sessionId();
  EXPECT_NE(second, first);
  ASSERT_EQ(starts.size(), 2u) << "one renewal, one session start";
  EXPECT_EQ(starts[1], first);
}

TEST_F(StatusTest, TwoFlowsStartedAtOnceOnlyOneWinsTheSlot) {
  auto status = makeStatus();
  auto connector =
      ConnectorBuilder(platform_.ref(), "id", "s", false, false, false, 15).buildConnector();
  std::vector<std::shared_ptr<OLLoginFlowBase>> flows;
  for (int i = 0; i < 8; ++i) {
    flows.push_back(
        std::make_shared<OLMSISDNPINLoginFlowImpl>(status, connector, "39", std::nullopt));
  }
  std::atomic<int> winners{0};
  std::promise<void> go;
  auto start = go.get_future().share();
  std::vector<std::thread> threads;
  for (auto& f : flows) {
    threads.emplace_back([&, f] {
      start.wait();
      if (status->setCurrentRunningFlow(f)) winners++;
    });
  }
  go.set_value();
  for (auto& t : threads) t.join();
  EXPECT_EQ(winners, 1);
  auto holder = status->runningFlow();
  ASSERT_TRUE(holder);
  for (auto& f : flows) {
    if (f != holder) status->freeCurrentRunningFlow(f.get());
  }
  EXPECT_EQ(status->runningFlow(), holder) << "only the holder frees the slot";
  status->freeCurrentRunningFlow(holder.get());  // no cycle left between the flow and the status
}

TEST_F(StatusTest, AnExpiredTokenNoticedDuringALoginDoesNotWipeTheNewOne) {
  auto status = makeStatus();
  auto& user = *status->userState();
  const std::string fresh =
      "A_" + formatAutologinInstant(platform_.clock().now() + 3600, platform_.clock()) + "xyz";
  for (int round = 0; round < 200; ++round) {
    user.loginUser("O_old", std::string("A_short"));  // expired on first read
    std::thread reader([&] {
      for (int i = 0; i < 20; ++i) (void)user.currentUserToken();
    });
    user.loginUser("O_new", fresh);
    reader.join();
    ASSERT_EQ(user.autologinToken(), fresh) << "round " << round;
  }
  // What is on disk agrees: a restart finds the new token.
  auto restarted = makeStatus();
  EXPECT_EQ(restarted->userState()->autologinToken(), fresh);
}

TEST(UserStateTest, AStrayStoredFileNamesItselfAndAResetStartsAfresh) {
  test::TestPlatform platform;
  test::EmulatorService service;
  { ASSERT_TRUE(service.startFacade(platform)); }
  ASSERT_TRUE(
      platform.platform().files->writeFileAtomic(platform.root() + "/UserMetaInfo/zz-stray", "?"));
  auto refused =
      Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, service.platformFor(platform));
  // That the start is refused is the corrupt-store campaign's; here what names the file.
  ASSERT_FALSE(refused);
  ASSERT_TRUE(refused.error().extra());
  EXPECT_EQ((*refused.error().extra())["cause"]["path"],
            platform.root() + "/UserMetaInfo/zz-stray");
  EXPECT_TRUE(platform.log().contains("zz-stray"));
  ASSERT_TRUE(Ostrel::resetStorage(service.platformFor(platform)));
  EXPECT_TRUE(service.startFacade(platform));
}

}  // namespace
}  // namespace ostrel
