// The settings file as found on disk at start-up.
#include <unistd.h>

#include "fuzz_platform.h"
#include "platform/defaults.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto& platform = ostrel::fuzz::quietPlatform();
  auto& files = *platform->files;
  const std::string path = ostrel::fuzz::quietRoot() + "/fuzz-settings.json";
  if (!files.writeFileAtomic(path, std::string(ostrel::fuzz::bytesOf(data, size)))) return 0;
  auto settings = ostrel::platform::makeFileSettingsStore(platform->files, path);
  for (const char* key : {"ostrel.deviceId", "a", "b", "k", "key"}) (void)settings->get(key);
  // What was read must be written back whole.
  settings->set("fuzz.written", std::string("v"));
  auto again = ostrel::platform::makeFileSettingsStore(platform->files, path);
  if (!again->get("fuzz.written")) __builtin_trap();
  return 0;
}
