// A chunk folder of arbitrary files at queue start-up: the queue must rebuild
// itself, hand out what decodes, skip what does not, and keep accepting events.
// Input: records of [chunk byte][name length][name][content length, 2 bytes LE][content].
#include <optional>

#include "events/ol_base_event.h"
#include "fuzz_platform.h"
#include "queue/ol_chunked_queue.h"

namespace {

struct Reader {
  const uint8_t* data;
  size_t size;
  size_t at = 0;
  bool more() const { return at < size; }
  uint8_t byte() { return at < size ? data[at++] : 0; }
  std::string bytes(size_t n) {
    n = std::min(n, size - at);
    std::string out(reinterpret_cast<const char*>(data + at), n);
    at += n;
    return out;
  }
};

std::string folderName(uint8_t chunk) {
  if (chunk < 240) return std::to_string(chunk % 6);
  const char* odd[] = {"-1", "65536", "007", "x", "1.5", "", " 2", "99999999999"};
  return odd[chunk % 8];
}

std::string fileName(std::string name) {
  for (char& c : name) {
    if (c == '/' || c == '\0') c = '_';
  }
  if (name.empty() || name == "." || name == "..") name = "e" + name;
  return name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto& files = *ostrel::fuzz::quietPlatform()->files;
  const std::string queueFolder = ostrel::fuzz::quietRoot() + "/FuzzQueue";
  (void)files.removeAll(queueFolder);
  Reader in{data, size};
  while (in.more()) {
    const std::string folder = queueFolder + "/Chunks/" + folderName(in.byte());
    const std::string name = fileName(in.bytes(in.byte()));
    size_t length = in.byte();
    length |= static_cast<size_t>(in.byte()) << 8;
    const std::string content = in.bytes(length);
    (void)files.createDirectories(folder);
    (void)files.writeFileAtomic(folder + "/" + name, content);
  }

  ostrel::OLChunkedQueue queue(ostrel::fuzz::quietPlatform(), "FuzzQueue", 2048);
  (void)queue.count();
  // Every chunk comes out once, then the queue is empty and still takes events.
  for (int guard = 0; guard < 64; ++guard) {
    std::optional<std::string> handler;
    auto events = queue.popChunk(handler, true);
    if (!events) break;
    for (const auto& event : *events) {
      (void)event->getEventDictionary(*ostrel::fuzz::quietPlatform()->clock);
    }
    auto left = queue.count();
    if (left && *left == 0 && queue.chunkKeys().size() <= 1) break;
  }
  auto event = ostrel::OLCustomEvent::make("fuzz", "session", "user", nullptr);
  if (!event) __builtin_trap();
  if (!queue.append(**event)) __builtin_trap();
  std::optional<std::string> handler;
  auto back = queue.popChunk(handler, true);
  if (!back || back->size() != 1) __builtin_trap();
  return 0;
}
