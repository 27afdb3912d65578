#pragma once
// Ranking a content item, and attaching this session to another one.
#include "events/ol_base_event.h"
#include "ostrel/event_types.h"

namespace ostrel {

class OLRankingContentEvent : public OLBaseEvent {
 public:
  static Result<std::shared_ptr<OLRankingContentEvent>> make(std::string sessionId,
                                                             std::string userId,
                                                             std::string contentId,
                                                             RankingScope scope, float multiplier);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLRankingContentEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  std::string contentId;
  float multiplier = 0;
  RankingScope scope{_RankingScope::unknown};

 private:
  OLRankingContentEvent() = default;
  using OLBaseEvent::OLBaseEvent;
};

class OLAttachSessionEvent : public OLBaseEvent {
 public:
  static Result<std::shared_ptr<OLAttachSessionEvent>> make(
      std::string sessionId, std::string userId, AttachType attachType,
      std::string attachedSessionId, std::optional<std::string> attachedUserId,
      std::shared_ptr<OLSimpleObject> customData);
  Result<void> checkProperties() const override;
  Json getEventDictionary(const platform::Clock& zone) const override;
  void encode(ArchiveWriter& writer) const override;
  std::string archiveClassName() const override { return "Ostrel.OLAttachSessionEvent"; }
  static Result<std::shared_ptr<OLBaseEvent>> decode(const ArchiveReader& reader);

  std::string attachedSessionId;
  std::optional<std::string> attachedUserId;
  AttachType attachType = AttachType::unknown;
  std::shared_ptr<OLSimpleObject> customData;

  static constexpr std::string_view kUserPattern = "^[CAOUE]_\\S+$";

 private:
  OLAttachSessionEvent() = default;
  using OLBaseEvent::OLBaseEvent;
};

}  // namespace ostrel
