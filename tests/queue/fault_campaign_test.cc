// The fault campaign: thousands of bulk sends (a short run here; set
// OSTREL_FAULT_ROUNDS for the long one) against a service that drops
// connections, answers late, refuses, answers garbage or from outside its
// domain, at random. Whatever the faults, an event the service never took is
// delivered once it recovers, an event of a refused chunk never is, and the
// queue drains.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <random>
#include <set>

#include "core/device_information.h"
#include "login/status_factory.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"
#include "support/emulator_service.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using Fault = emulator::Emulator::Fault;

// What the library must do with the chunk a fault answered.
enum class Fate { Kept, Dropped, Taken };

struct Kind {
  const char* name;
  Fault fault;
  Fate fate;
  bool stores;  // the service still kept the events (a late answer)
};

const Kind kKinds[] = {
    {"dropped connection", {0, 0, true, ""}, Fate::Kept, false},
    {"late beyond the time-out", {0, 1500, false, ""}, Fate::Kept, true},
    {"500", {500, 0, false, ""}, Fate::Kept, false},
    {"503", {503, 0, false, ""}, Fate::Kept, false},
    {"408", {408, 0, false, ""}, Fate::Kept, false},
    {"502 page not JSON", {502, 0, false, "non_json"}, Fate::Kept, false},
    {"outside the domain", {0, 0, false, "outside"}, Fate::Kept, false},
    {"404", {404, 0, false, ""}, Fate::Dropped, false},
    {"400", {400, 0, false, ""}, Fate::Dropped, false},
    {"200 not UTF-8", {200, 0, false, "non_utf8"}, Fate::Taken, false},
    {"205", {205, 0, false, ""}, Fate::Taken, true},
};

const Kind* kindOf(const Json& served) {
  for (const auto& k : kKinds) {
    if (k.fault.status == served["status"] && k.fault.delayMs == served["delay_ms"] &&
        k.fault.drop == served["drop"] && k.fault.body == served["body"]) {
      return &k;
    }
  }
  return nullptr;
}

int envOr(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v ? std::atoi(v) : fallback;
}

TEST(FaultCampaign, NothingLostNothingWronglyKeptAndTheQueueDrains) {
  test::TestPlatform platform;
  test::EmulatorService service;
  const PlatformRef services = std::make_shared<const Platform>(service.platformFor(platform));
  OstrelConfiguration config;
  config.connectionTimeoutSecs = 1;
  config.chunkCountEvents = 1000;  // only the campaign's flushes send
  auto device = std::make_shared<DeviceInformation>();
  auto connectors = std::make_shared<ConnectorBuilder>(
      services, device->deviceId, "demo-secret", false, false, false, config.connectionTimeoutSecs);
  auto status = *makeOstrelStatus(services, config, device, connectors, nullptr);
  ASSERT_TRUE(status);
  auto manager = OLQueueManager::make(services, connectors, config, status);
  auto flush = [&] {
    std::promise<void> done;
    manager->flushEvents([&](std::optional<OLError>, std::optional<Json>) { done.set_value(); });
    return done.get_future().wait_for(60s) == std::future_status::ready;
  };

  const int rounds = envOr("OSTREL_FAULT_ROUNDS", 150);
  std::mt19937 rng(envOr("OSTREL_FAULT_SEED", 7));
  std::set<std::string> recorded;
  for (int round = 0; round < rounds; ++round) {
    const int events = 1 + static_cast<int>(rng() % 25);
    for (int i = 0; i < events; ++i) {
      const std::string name = "r" + std::to_string(round) + "-" + std::to_string(i);
      ASSERT_TRUE(manager->addEvent(name, EventType(_EventType::Custom), nullptr));
      recorded.insert(name);
    }
    // One answer in four is a fault; late answers are rarer, they cost a time-out.
    if (rng() % 4 == 0) {
      const auto& kind = kKinds[rng() % std::size(kKinds)];
      if (kind.fault.delayMs == 0 || rng() % 3 == 0) {
        service.emulator().injectFault("/events/track_bulk", kind.fault);
      }
    }
    ASSERT_TRUE(flush()) << "round " << round;
  }
  // The service recovers: what is left goes out.
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(flush());
  manager->waitUntilIdle();
  const auto left = manager->eventQueue()->snapshot();
  EXPECT_LE(left.chunkCount, 1u);
  EXPECT_EQ(left.oldestCount, 0);

  // The fate of each event is the one of the last fault that answered it.
  std::map<std::string, const Kind*> lastFault;
  std::set<std::string> storedLate;
  std::map<std::string, int> mix;
  const auto servedFaults = service.emulator().servedFaults();
  for (const auto& served : servedFaults) {
    const Kind* kind = kindOf(served);
    ASSERT_TRUE(kind) << served.dump();
    ++mix[kind->name];
    auto body = parseJson(served["request"].get<std::string>());
    ASSERT_TRUE(body && body->is_array());
    for (const auto& e : *body) {
      const std::string name = e.value("name", "");
      if (!recorded.count(name)) continue;
      lastFault[name] = kind;
      if (kind->stores) storedLate.insert(name);
    }
  }
  std::map<std::string, int> deliveries;
  for (const auto& e : service.events()) {
    const std::string name = e.value("name", "");
    if (recorded.count(name)) ++deliveries[name];
  }
  std::size_t lost = 0, wronglyDelivered = 0, duplicates = 0, dropped = 0;
  for (const auto& name : recorded) {
    auto fault = lastFault.find(name);
    const bool gone = fault != lastFault.end() && fault->second->fate != Fate::Kept;
    const int times = deliveries.count(name) ? deliveries[name] : 0;
    if (times > 1) duplicates += static_cast<std::size_t>(times - 1);
    if (!gone && times == 0) ++lost;
    if (gone && fault->second->fate == Fate::Dropped) {
      ++dropped;
      if (times > 0 && !storedLate.count(name)) ++wronglyDelivered;
    }
  }
  std::string kindsServed;
  for (const auto& [name, count] : mix) kindsServed += " " + name + "=" + std::to_string(count);
  std::printf(
      "fault campaign: %d flushes, %zu faults served (%s ), %zu events recorded, %zu lost, %zu "
      "refused as the service said, %zu delivered though refused, %zu duplicates\n",
      rounds, servedFaults.size(), kindsServed.c_str(), recorded.size(), lost, dropped,
      wronglyDelivered, duplicates);
  EXPECT_FALSE(servedFaults.empty());
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(wronglyDelivered, 0u);
}

}  // namespace
}  // namespace ostrel
