#pragma once
// App-named events with a life of several steps: a flow of stages sharing one
// flow identifier, and a timed event that carries its elapsed time when stopped.
#include "events/ol_base_event.h"
#include "ostrel/event_types.h"
#include "ostrel/platform/crypto.h"

namespace ostrel {

class OLFlowEvent : public OLExternalEvent {
 public:
  // `flowId`: a new identifier (makeUuid) that every stage of the flow carries.
  static Result<std::shared_ptr<OLFlowEvent>> make(std::string flowId, std::string name,
                                                   std::string sessionId, std::string userId,
                                                   std::shared_ptr<OLSimpleObject> customData);
  // Moves to the next stage, made at `now`, in place; the fields stay changed
  // when the name is refused.
  Result<void> iterateFlow(std::string name, FlowStatus nextStatus,
                           std::shared_ptr<OLSimpleObject> customData, double now);
  Result<void> flowSucceed(const std::string& reason, std::shared_ptr<OLSimpleObject> customData,
                           double now);

  // A copy of this stage, to queue while the flow goes on changing.
  std::shared_ptr<OLFlowEvent> snapshot() const {
    return std::shared_ptr<OLFlowEvent>(new OLFlowEvent(*this));
  }
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLFlowEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  std::string flowId;
  FlowStatus flowStatus = FlowStatus::Begun;

 private:
  OLFlowEvent() = default;
  using OLExternalEvent::OLExternalEvent;
};

class OLTimedEvent : public OLExternalEvent {
 public:
  static Result<std::shared_ptr<OLTimedEvent>> make(std::string name, std::string sessionId,
                                                    std::string userId,
                                                    std::shared_ptr<OLSimpleObject> customData);
  // Stops the timer at `now`.
  Result<void> stop(std::shared_ptr<OLSimpleObject> customData, double now);

  std::shared_ptr<OLTimedEvent> snapshot() const {
    return std::shared_ptr<OLTimedEvent>(new OLTimedEvent(*this));
  }
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLTimedEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  std::optional<double> delta;
  std::optional<double> end;
  TimerStatus timerStatus = TimerStatus::Started;

 private:
  OLTimedEvent() = default;
  using OLExternalEvent::OLExternalEvent;
};

// A new random UUID in upper-case 8-4-4-4-12 form.
std::string makeUuid(const platform::Crypto& crypto);

}  // namespace ostrel
