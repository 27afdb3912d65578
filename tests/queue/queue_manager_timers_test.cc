// The queue manager's timers: the heartbeat lists running timers, the expire
// timer flushes without being asked, and an overdue expire timer fires at once.
#include <gtest/gtest.h>

#include "core/device_information.h"
#include "login/status_factory.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

using test::eventually;

TEST(QueueManagerTimersTest, HeartbeatAndExpiryWork) {
  test::TestPlatform platform;
  test::EmulatorService service;
  const PlatformRef services = std::make_shared<const Platform>(service.platformFor(platform));
  OstrelConfiguration config;
  config.heartbeatPeriodSec = 0.05;
  config.expireTimeSec = 0.1;
  auto device = std::make_shared<DeviceInformation>();
  auto connectors = std::make_shared<ConnectorBuilder>(services, device->deviceId, "demo-secret",
                                                       false, false, false, 15);
  auto status = *makeOstrelStatus(services, config, device, connectors, nullptr);
  ASSERT_TRUE(status);
  auto manager = OLQueueManager::make(services, connectors, config, status);
  ASSERT_TRUE(manager->addEvent("watch", EventType(_EventType::TimerStart), nullptr));
  // Nobody flushes: the expire timer does, and the heartbeat names the running timer.
  EXPECT_TRUE(eventually([&] {
    auto beats = service.events("timer heartbeat");
    return !beats.empty() && beats.back()["timers"] == Json::array({"watch"});
  }));
  EXPECT_TRUE(platform.log().contains("expire handler called"));
  ASSERT_TRUE(manager->addEvent("watch", EventType(_EventType::TimerStop), nullptr));
}

}  // namespace
}  // namespace ostrel
