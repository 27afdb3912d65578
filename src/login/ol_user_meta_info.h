#pragma once
// The cached meta information of the user, valid for a while.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "archive/keyed_archive.h"
#include "core/expirable.h"
#include "ostrel/json.h"
#include "store/ol_disk_storage.h"

namespace ostrel {

class OLUserMetaInfo : public Archivable, public Expirable {
 public:
  OLUserMetaInfo(Json dictionary, double lastUpdate, double expires);

  // Setting fresh info restarts the validity, from the platform's now.
  void setInfo(Json info, const Platform& platform);
  const std::optional<Json>& info() const { return _info; }
  bool isExpired(const Platform& platform) const override;
  // Dates in the clock's local time.
  std::string description(const platform::Clock& zone) const;

  std::string archiveClassName() const override { return "Ostrel.OLUserMetaInfo"; }
  void encode(ArchiveWriter& writer) const override;
  static Result<std::shared_ptr<OLUserMetaInfo>> decode(std::string_view bytes);

  double lastUpdate;
  double expireSec;

 private:
  std::optional<Json> _info;
};

template <>
struct StorableTraits<OLUserMetaInfo> {
  static std::string archive(const OLUserMetaInfo& m) { return archivedBytes(m); }
  static Result<std::shared_ptr<OLUserMetaInfo>> unarchive(std::string_view bytes) {
    return OLUserMetaInfo::decode(bytes);
  }
  static std::string key(const OLUserMetaInfo&) { return "user_meta_info"; }
  static std::string description(const OLUserMetaInfo& m, const Platform& platform) {
    return m.description(*platform.clock);
  }
};

}  // namespace ostrel
