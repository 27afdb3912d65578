// OLSimpleObject from JSON text and from a dictionary, then through the archive
// of an object that holds it.
#include "archive/keyed_archive.h"
#include "events/simple_object_archive.h"
#include "fuzz_platform.h"
#include "ostrel/ol_simple_object.h"

namespace {

void exercise(const std::shared_ptr<ostrel::OLSimpleObject>& object) {
  if (!object) return;
  (void)object->length();
  ostrel::ArchiveWriter holder("Ostrel.Holder");
  holder.encodeObject("data", ostrel::SimpleObjectArchive(*object));
  auto reader = ostrel::ArchiveReader::open(holder.bytes());
  // A bag the library accepted must read back from the events that carry it.
  if (!reader || !ostrel::decodeSimpleObject(*reader, "data")) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto text = ostrel::fuzz::bytesOf(data, size);
  exercise(ostrel::OLSimpleObject::fromJSONString(text));
  if (auto parsed = ostrel::parseJson(text)) {
    exercise(ostrel::OLSimpleObject::fromDictionary(*parsed));
  }
  return 0;
}
