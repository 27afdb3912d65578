#include "status/flag.h"

namespace ostrel {

void Flag::encode(ArchiveWriter& writer) const {
  writer.encodeString("name", name);
  writer.encodeBool("value", value);
}

Result<std::shared_ptr<Flag>> Flag::decode(std::string_view bytes) {
  auto reader = ArchiveReader::open(bytes);
  if (!reader) return reader.error();
  if (reader->className() != "Ostrel.Flag") return archiveError("Not a flag");
  auto name = reader->decodeString("name");
  auto value = reader->decodeBool("value");
  if (!name) return name.error();
  if (!value) return value.error();
  return std::make_shared<Flag>(*name, *value);
}

}  // namespace ostrel
