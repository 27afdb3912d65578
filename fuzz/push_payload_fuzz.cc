// A remote push payload, as JSON text, to a push object. Every payload comes
// from outside the app: whatever it holds, it becomes a push or an error.
#include "fuzz_platform.h"
#include "ostrel/ol_push_builder.h"
#include "push/push_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto text = ostrel::fuzz::bytesOf(data, size);
  for (bool atStartup : {false, true}) {
    auto push = ostrel::OLPushBuilder::buildPushObject(text, atStartup);
    if (!push) continue;
    (void)(*push)->description();
    // Pushes are kept on disk until the host takes them: what was built must come back.
    if (!ostrel::decodePush(ostrel::archivePush(**push))) __builtin_trap();
  }
  return 0;
}
