#pragma once
// The "Flow" store: the analytic flow in progress, kept on disk so that a flow
// begun before a restart can go on (or end) after it.
#include <memory>
#include <string>

#include "events/event_archive.h"
#include "events/flow_events.h"
#include "store/ol_disk_storage.h"

namespace ostrel {

template <>
struct StorableTraits<OLFlowEvent> {
  static std::string archive(const OLFlowEvent& e) { return archivedBytes(e); }
  static Result<std::shared_ptr<OLFlowEvent>> unarchive(std::string_view bytes) {
    auto event = decodeEvent(bytes);
    if (!event) return event.error();
    auto flow = std::dynamic_pointer_cast<OLFlowEvent>(*event);
    if (!flow) return eventCreationError("Not a flow event");
    return flow;
  }
  static std::string key(const OLFlowEvent&) { return kActiveFlow; }
  static std::string description(const OLFlowEvent& e, const Platform&) { return e.eventType; }
  static constexpr const char* kActiveFlow = "activeFlow";
};

using OLFlowStore = OLMap<OLFlowEvent>;

}  // namespace ostrel
