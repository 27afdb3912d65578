#include "push/push_archive.h"

#include <mutex>

#include "archive/keyed_archive.h"
#include "events/simple_object_archive.h"

namespace ostrel {
namespace {

class PushArchive : public Archivable {
 public:
  explicit PushArchive(const OLPushBase& push) : push_(push) {}
  std::string archiveClassName() const override { return push_.archiveClassName(); }
  void encode(ArchiveWriter& writer) const override { push_.encode(writer); }

 private:
  const OLPushBase& push_;
};

Result<void> decodeBase(const ArchiveReader& r, OLPushBase& push) {
  auto id = r.decodeString("push_id");
  auto shown = r.decodeBool("shown");
  auto local = r.decodeBool("is_local");
  if (!id) return id.error();
  if (!shown) return shown.error();
  if (!local) return local.error();
  push.pushId = *id;
  push.shown = *shown;
  push.isLocal = *local;
  return {};
}

Result<void> decodeStandard(const ArchiveReader& r, OLStandardPush& push) {
  if (auto ok = decodeBase(r, push); !ok) return ok.error();
  auto body = r.decodeString("body");
  if (!body) return body.error();
  push.body = *body;
  if (r.contains("badge")) {
    auto badge = r.decodeInt("badge");
    if (!badge) return badge.error();
    push.badge = *badge;
  }
  if (r.contains("sound")) {
    auto sound = r.decodeString("sound");
    if (!sound) return sound.error();
    push.sound = *sound;
  }
  push.customFields = decodeSimpleObject(r, "custom_fields");
  return {};
}

template <class T, class Decoder>
Result<std::shared_ptr<OLPushBase>> decodeAs(const ArchiveReader& r, Decoder decoder) {
  auto push = std::make_shared<T>();
  if (auto ok = decoder(r, *push); !ok) return ok.error();
  return std::shared_ptr<OLPushBase>(push);
}

void registerPushClasses() {
  auto& registry = ArchiveRegistry<OLPushBase>::shared();
  registry.registerClass("Ostrel.OLPingPush", [](const ArchiveReader& r) {
    return decodeAs<OLPingPush>(r, decodeBase);
  });
  registry.registerClass("Ostrel.OLStandardPush", [](const ArchiveReader& r) {
    return decodeAs<OLStandardPush>(r, decodeStandard);
  });
  registry.registerClass("Ostrel.OLUrlPush", [](const ArchiveReader& r) {
    return decodeAs<OLUrlPush>(r, [](const ArchiveReader& rr, OLUrlPush& p) -> Result<void> {
      if (auto ok = decodeStandard(rr, p); !ok) return ok.error();
      auto url = rr.decodeString("url");
      if (!url) return url.error();
      p.url = *url;
      return {};
    });
  });
  registry.registerClass("Ostrel.OLBackgroundPush", [](const ArchiveReader& r) {
    return decodeAs<OLBackgroundPush>(
        r, [](const ArchiveReader& rr, OLBackgroundPush& p) -> Result<void> {
          if (auto ok = decodeBase(rr, p); !ok) return ok.error();
          p.customFields = decodeSimpleObject(rr, "custom_fields");
          if (!p.customFields) {
            return OLError::LocalError(LocalErrorCodes::PushNotificationError,
                                       "Background push without custom fields");
          }
          return {};
        });
  });
}

}  // namespace

std::string archivePush(const OLPushBase& push) {
  return archivedBytes(PushArchive(push));
}

Result<std::shared_ptr<OLPushBase>> decodePush(std::string_view bytes) {
  static std::once_flag once;
  std::call_once(once, registerPushClasses);
  return ArchiveRegistry<OLPushBase>::shared().decode(bytes);
}

}  // namespace ostrel
