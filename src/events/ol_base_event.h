#pragma once
// The analytics event tree. Every event is made once with its creation time,
// archived by the event queue under its unique name, and later turned into
// its JSON dictionary for the bulk upload.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "archive/keyed_archive.h"
#include "ostrel/json.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/platform/clock.h"
#include "ostrel/result.h"

namespace ostrel {

class OLBaseEvent : public Archivable {
 public:
  ~OLBaseEvent() override = default;

  // Subclasses that can refuse their input override this; construction runs
  // it last, through the dynamic type.
  virtual Result<void> checkProperties() const { return {}; }
  // Dates are written in the zone's local time as it is when the dictionary
  // is made (the archive keeps only the instants).
  virtual Json getEventDictionary(const platform::Clock& zone) const;
  // "<seconds with six decimals>-event-<type>" without dots, blanks as "_".
  std::string uniqueName() const;

  void encode(ArchiveWriter& writer) const override;

  std::string eventType;
  const std::string& sessionId() const { return sessionId_; }
  // Seconds since 1970, stamped by the producer from its platform's clock: an
  // event is a value and reads no clock of its own.
  double creationDate = 0;
  std::string userId;

  // "yyyy-MM-dd'T'HH:mm:ssZZZZZ" in the clock's local time zone ("Z" for a
  // zero offset).
  static std::string formatDate(double secondsSince1970, const platform::Clock& zone);

 protected:
  OLBaseEvent(std::string eventType, std::string sessionId, std::string userId);
  // Reads the four base keys; any of them missing or mistyped fails the decoding.
  static Result<void> decodeBase(const ArchiveReader& reader, OLBaseEvent& event);
  OLBaseEvent() = default;  // for decoders, which fill every field

  std::string sessionId_;
};

// Events the library makes by itself.
class OLInternalEvent : public OLBaseEvent {
 protected:
  using OLBaseEvent::OLBaseEvent;
};

// Events the host asks for, carrying an app-chosen name.
class OLExternalEvent : public OLBaseEvent {
 public:
  // The name rule: 1 to 32 word characters or "-", anchored per line.
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;

  std::string name;
  std::shared_ptr<OLSimpleObject> customData;

  static constexpr std::string_view kNamePattern = "^[\\w-]{1,32}$";
  static Result<void> checkName(const std::string& name);

 protected:
  OLExternalEvent(std::string name, std::string eventType, std::string sessionId,
                  std::string userId, std::shared_ptr<OLSimpleObject> customData);
  OLExternalEvent() = default;
  static Result<void> decodeExternal(const ArchiveReader& reader, OLExternalEvent& event);
};

class OLCustomEvent : public OLExternalEvent {
 public:
  static Result<std::shared_ptr<OLCustomEvent>> make(std::string name, std::string sessionId,
                                                     std::string userId,
                                                     std::shared_ptr<OLSimpleObject> customData);
  std::string archiveClassName() const override { return "Ostrel.OLCustomEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

 private:
  using OLExternalEvent::OLExternalEvent;
  OLCustomEvent() = default;
};

// Builds an event and runs its checks; a refused event never escapes.
template <class T>
Result<std::shared_ptr<T>> checked(std::shared_ptr<T> event) {
  if (auto ok = event->checkProperties(); !ok) return ok.error();
  return event;
}

OLError eventCreationError(std::string message, std::optional<Json> extra = std::nullopt);

}  // namespace ostrel
