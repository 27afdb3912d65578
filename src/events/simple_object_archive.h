#pragma once
// Lets a bag take part in the archive of the object that holds it.
#include <memory>

#include "archive/keyed_archive.h"
#include "ostrel/ol_simple_object.h"

namespace ostrel {

class SimpleObjectArchive : public Archivable {
 public:
  explicit SimpleObjectArchive(const OLSimpleObject& object) : object_(object) {}
  std::string archiveClassName() const override { return OLSimpleObject::kArchiveClassName; }
  void encode(ArchiveWriter& writer) const override { object_.encode(writer); }

 private:
  const OLSimpleObject& object_;
};

// The bag stored under `key`, or nothing when it is absent or no longer valid.
// An event keeps its own copy of the host's bag: the host may change or reuse
// its bag right after the call, from any thread.
inline std::shared_ptr<OLSimpleObject> copyOfBag(const std::shared_ptr<OLSimpleObject>& bag) {
  return bag ? std::make_shared<OLSimpleObject>(*bag) : nullptr;
}

std::shared_ptr<OLSimpleObject> decodeSimpleObject(const ArchiveReader& reader,
                                                   std::string_view key);

}  // namespace ostrel
