#include "events/flow_events.h"

#include "events/simple_object_archive.h"
#include "platform/fatal.h"

namespace ostrel {

std::string makeUuid(const platform::Crypto& crypto) {
  std::string b = crypto.randomBytes(16);
  b[6] = static_cast<char>((b[6] & 0x0F) | 0x40);  // version 4
  b[8] = static_cast<char>((b[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    auto v = static_cast<unsigned char>(b[static_cast<std::size_t>(i)]);
    out += hex[v >> 4];
    out += hex[v & 0xF];
  }
  return out;
}

Result<std::shared_ptr<OLFlowEvent>> OLFlowEvent::make(std::string flowId, std::string name,
                                                       std::string sessionId, std::string userId,
                                                       std::shared_ptr<OLSimpleObject> customData) {
  auto e = std::shared_ptr<OLFlowEvent>(new OLFlowEvent(std::move(name), "flow start",
                                                        std::move(sessionId), std::move(userId),
                                                        std::move(customData)));
  e->flowId = std::move(flowId);
  e->flowStatus = FlowStatus::Begun;
  return checked(e);
}

Result<void> OLFlowEvent::iterateFlow(std::string newName, FlowStatus nextStatus,
                                      std::shared_ptr<OLSimpleObject> newCustomData, double now) {
  name = std::move(newName);
  customData = copyOfBag(newCustomData);
  flowStatus = nextStatus;
  eventType = std::string(rawValue(nextStatus));
  creationDate = now;
  return checkName(name);
}

Result<void> OLFlowEvent::flowSucceed(const std::string& reason,
                                      std::shared_ptr<OLSimpleObject> newCustomData, double now) {
  if (isFinal(flowStatus)) {
    return OLError::LocalError(LocalErrorCodes::EventFlowInconsistance,
                               "Cannot finish an event never started", std::nullopt,
                               Json{{"flowId", flowId}});
  }
  return iterateFlow(reason, FlowStatus::Succeeded, std::move(newCustomData), now);
}

Json OLFlowEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLExternalEvent::getEventDictionary(zone);
  d["flow_id"] = flowId;
  return d;
}

void OLFlowEvent::encode(ArchiveWriter& w) const {
  OLExternalEvent::encode(w);
  w.encodeString("flow_id", flowId);
  w.encodeString("flow_status", std::string(rawValue(flowStatus)));
}

Result<std::shared_ptr<OLBaseEvent>> OLFlowEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLFlowEvent>(new OLFlowEvent());
  auto id = r.decodeString("flow_id");
  auto raw = r.decodeString("flow_status");
  if (!id) return id.error();
  if (!raw) return raw.error();
  auto status = flowStatusFromRaw(*raw);
  if (!status) return archiveError("Unknown stored flow status " + *raw);
  e->flowId = std::move(*id);
  e->flowStatus = *status;
  if (auto ok = decodeExternal(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

Result<std::shared_ptr<OLTimedEvent>> OLTimedEvent::make(
    std::string name, std::string sessionId, std::string userId,
    std::shared_ptr<OLSimpleObject> customData) {
  return checked(std::shared_ptr<OLTimedEvent>(
      new OLTimedEvent(std::move(name), "timer start", std::move(sessionId), std::move(userId),
                       std::move(customData))));
}

Result<void> OLTimedEvent::stop(std::shared_ptr<OLSimpleObject> newCustomData, double now) {
  if (timerStatus != TimerStatus::Started) {
    return OLError::LocalError(LocalErrorCodes::EventTimedInconsistance,
                               "Cannot Stop a Timed Event not started", std::nullopt,
                               Json{{"timername", name}});
  }
  end = now;
  delta = *end - creationDate;
  timerStatus = TimerStatus::Stop;
  eventType = "timer stop";
  customData = copyOfBag(newCustomData);
  return checkName(name);
}

Json OLTimedEvent::getEventDictionary(const platform::Clock& zone) const {
  Json d = OLExternalEvent::getEventDictionary(zone);
  if (end) d["end"] = formatDate(*end, zone);
  if (delta) d["delta"] = *delta;
  return d;
}

void OLTimedEvent::encode(ArchiveWriter& w) const {
  OLExternalEvent::encode(w);
  if (delta) w.encodeDouble("delta", *delta);
  if (end) w.encodeDate("end_date", *end);
  w.encodeString("timer_status", std::string(rawValue(timerStatus)));
}

Result<std::shared_ptr<OLBaseEvent>> OLTimedEvent::decode(const ArchiveReader& r) {
  auto e = std::shared_ptr<OLTimedEvent>(new OLTimedEvent());
  if (r.contains("delta")) {
    auto delta = r.decodeDouble("delta");
    if (!delta) return delta.error();
    e->delta = *delta;
  }
  if (r.contains("end_date")) {
    auto end = r.decodeDate("end_date");
    if (!end) return end.error();
    e->end = *end;
  }
  auto raw = r.decodeString("timer_status");
  if (!raw) return raw.error();
  auto status = timerStatusFromRaw(*raw);
  if (!status) return archiveError("Unknown stored timer status " + *raw);
  e->timerStatus = *status;
  if (auto ok = decodeExternal(r, *e); !ok) return ok.error();
  return std::shared_ptr<OLBaseEvent>(e);
}

}  // namespace ostrel
