#include "fuzz_platform.h"

#include <cstdlib>

#include "ostrel/platform.h"
#include "scratch_platform.h"

namespace ostrel::fuzz {
namespace {

struct Quietly {
  std::string root;
  PlatformRef platform;
};

const Quietly& made() {
  static const Quietly quietly = [] {
    // Kept for the exit handler, which runs after the statics are gone; the
    // folder goes with the process, whatever way it ends.
    static auto* const scratch = new testing::ScratchDir();
    std::atexit([] { delete scratch; });
    std::string folder = scratch->path() + "/Ostrel";
    return Quietly{folder,
                   std::make_shared<const Platform>(testing::scratchPlatform(Platform{}, folder))};
  }();
  return quietly;
}

}  // namespace

const PlatformRef& quietPlatform() {
  return made().platform;
}

const std::string& quietRoot() {
  return made().root;
}

}  // namespace ostrel::fuzz
