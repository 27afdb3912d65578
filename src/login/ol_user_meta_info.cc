#include "login/ol_user_meta_info.h"

#include "events/ol_base_event.h"
#include "platform/platform_ref.h"

namespace ostrel {

OLUserMetaInfo::OLUserMetaInfo(Json dictionary, double lastUpdate, double expires)
    : lastUpdate(lastUpdate), expireSec(expires), _info(std::move(dictionary)) {}

void OLUserMetaInfo::setInfo(Json info, const Platform& platform) {
  logLine(platform, "CACHE RESET Validity " + std::to_string(expireSec) + " s");
  _info = std::move(info);
  lastUpdate = platform.clock->now();
}

bool OLUserMetaInfo::isExpired(const Platform& platform) const {
  const double now = platform.clock->now();
  const platform::Clock& zone = *platform.clock;
  logLine(platform, "CACHE now " + OLBaseEvent::formatDate(now, zone) + " valid until " +
                        OLBaseEvent::formatDate(lastUpdate + expireSec, zone));
  return now > lastUpdate + expireSec;
}

std::string OLUserMetaInfo::description(const platform::Clock& zone) const {
  return "OLUserMetaInfo " + (_info ? dumpJson(*_info) : std::string("nil")) + " updated " +
         OLBaseEvent::formatDate(lastUpdate, zone) + " for " + std::to_string(expireSec) + " s";
}

void OLUserMetaInfo::encode(ArchiveWriter& writer) const {
  writer.encodeJson("user_meta_info", _info ? *_info : Json(nullptr));
  writer.encodeDate("last_update", lastUpdate);
  writer.encodeDouble("expire_seconds", expireSec);
}

Result<std::shared_ptr<OLUserMetaInfo>> OLUserMetaInfo::decode(std::string_view bytes) {
  auto reader = ArchiveReader::open(bytes);
  if (!reader) return reader.error();
  if (reader->className() != "Ostrel.OLUserMetaInfo") return archiveError("Not meta info");
  auto info = reader->decodeJson("user_meta_info");
  auto last = reader->decodeDate("last_update");
  auto expires = reader->decodeDouble("expire_seconds");
  if (!info) return info.error();
  if (!last) return last.error();
  if (!expires) return expires.error();
  auto meta = std::make_shared<OLUserMetaInfo>(*info, *last, *expires);
  if (info->is_null()) meta->_info.reset();
  return meta;
}

}  // namespace ostrel
