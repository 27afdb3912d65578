#include "events/event_archive.h"

#include <mutex>

#include "events/content_events.h"
#include "events/flow_events.h"
#include "events/internal_events.h"
#include "events/push_events.h"

namespace ostrel {
namespace {

void registerEventClasses() {
  auto& r = ArchiveRegistry<OLBaseEvent>::shared();
  r.registerClass("Ostrel.OLCustomEvent", OLCustomEvent::decode);
  r.registerClass("Ostrel.OLSessionEvent", OLSessionEvent::decode);
  r.registerClass("Ostrel.OLIdentifyEvent", OLIdentifyEvent::decode);
  r.registerClass("Ostrel.OLLogoutEvent", OLLogoutEvent::decode);
  r.registerClass("Ostrel.OLTimersHearbeat", OLTimersHearbeat::decode);
  r.registerClass("Ostrel.OLFlowEvent", OLFlowEvent::decode);
  r.registerClass("Ostrel.OLTimedEvent", OLTimedEvent::decode);
  r.registerClass("Ostrel.OLRankingContentEvent", OLRankingContentEvent::decode);
  r.registerClass("Ostrel.OLAttachSessionEvent", OLAttachSessionEvent::decode);
  r.registerClass("Ostrel.OLPushReceivedEvent", OLPushReceivedEvent::decode);
  r.registerClass("Ostrel.OLPushRegisteredEvent", OLPushRegisteredEvent::decode);
}

}  // namespace

Result<std::shared_ptr<OLBaseEvent>> decodeEvent(std::string_view bytes) {
  static std::once_flag once;
  std::call_once(once, registerEventClasses);
  return ArchiveRegistry<OLBaseEvent>::shared().decode(bytes);
}

}  // namespace ostrel
