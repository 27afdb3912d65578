#pragma once
// One event of every archived class, with custom data where the class takes
// it: what the archive round trip starts from, and the fuzz targets' seeds, so
// that a new class reaches both.
#include <memory>
#include <string>
#include <vector>

#include "core/device_information.h"
#include "events/content_events.h"
#include "events/flow_events.h"
#include "events/internal_events.h"
#include "events/push_events.h"
#include "ostrel/ol_simple_object.h"

namespace ostrel::test {

inline std::vector<std::shared_ptr<OLBaseEvent>> oneEventOfEachClass() {
  auto data = OLSimpleObject::fromJSONString(R"({"k":"v","f":1.5})");
  DeviceInformation device(platform::DeviceFactsSnapshot{});
  device.deviceId = "D";
  auto timer = *OLTimedEvent::make("t", "s", "u", data);
  (void)timer->stop(nullptr, 1);
  auto flow = *OLFlowEvent::make("F", "f", "s", "u", data);
  (void)flow->iterateFlow("step", FlowStatus::Step, nullptr, 1);
  return {
      *OLCustomEvent::make("n", "s", "u", data),
      *OLSessionEvent::make("s", "u", device, true, data, std::string("old")),
      *OLIdentifyEvent::make("s", "u", data, LoginType::msisdnPin),
      *OLLogoutEvent::make("s", "u", LogoutType::delete_),
      *OLTimersHearbeat::make(10, {"a"}, "s", "u"),
      flow,
      timer,
      *OLRankingContentEvent::make("s", "u", "abc", RankingScope(_RankingScope::consumption), 2.5f),
      *OLAttachSessionEvent::make("s", "u", AttachType::master, "x", "C_9", data),
      *OLPushReceivedEvent::make(
          "p", PushNotificationEventType(PushReceiveType::ping, PushReceiveAction::notified), true,
          "s", "u"),
      *OLPushRegisteredEvent::make(false, std::string("no token"), "s", "u"),
  };
}

}  // namespace ostrel::test
