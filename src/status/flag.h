#pragma once
// A small persisted application flag, stored under its name.
#include <memory>
#include <string>
#include <string_view>

#include "archive/keyed_archive.h"
#include "store/ol_disk_storage.h"

namespace ostrel {

class Flag : public Archivable {
 public:
  Flag(std::string name, bool value) : name(std::move(name)), value(value) {}
  std::string archiveClassName() const override { return "Ostrel.Flag"; }
  void encode(ArchiveWriter& writer) const override;
  static Result<std::shared_ptr<Flag>> decode(std::string_view bytes);

  std::string name;
  bool value;
};

template <>
struct StorableTraits<Flag> {
  static std::string archive(const Flag& f) { return archivedBytes(f); }
  static Result<std::shared_ptr<Flag>> unarchive(std::string_view bytes) {
    return Flag::decode(bytes);
  }
  static std::string key(const Flag& f) { return f.name; }
  static std::string description(const Flag& f, const Platform&) {
    return "Flag " + f.name + "=" + (f.value ? "true" : "false");
  }
};

}  // namespace ostrel
