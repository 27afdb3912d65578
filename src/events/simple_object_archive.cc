#include "events/simple_object_archive.h"

namespace ostrel {

std::shared_ptr<OLSimpleObject> decodeSimpleObject(const ArchiveReader& reader,
                                                   std::string_view key) {
  if (!reader.contains(key)) return nullptr;
  auto nested = reader.decodeObject(key);
  if (!nested || nested->className() != OLSimpleObject::kArchiveClassName) return nullptr;
  return OLSimpleObject::decode(*nested);
}

}  // namespace ostrel
