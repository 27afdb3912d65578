#include "fuzz_platform.h"

#include <cstdlib>
#include <filesystem>

#include "ostrel/platform.h"
#include "platform/defaults.h"

namespace ostrel::fuzz {
namespace {

class Quiet : public platform::LogSink {
 public:
  void write(std::string_view) override {}
};

struct Quietly {
  std::string root;
  PlatformRef platform;
};

const Quietly& made() {
  static const Quietly quietly = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "ostrel-fuzz-XXXXXX").string();
    const char* made = ::mkdtemp(pattern.data());
    // Kept for the exit handler, which runs after the statics are gone.
    static auto* const temporary = new std::string(made ? made : pattern.c_str());
    std::string folder = *temporary + "/Ostrel";
    Platform platform;
    platform.log = std::make_shared<Quiet>();
    platform.files = platform::makePosixFileSystem(folder);
    platform.settings = platform::makeFileSettingsStore(platform.files, folder + "/settings.json");
    // The folder goes with the process, whatever way it ends.
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(*temporary, ec);
    });
    return Quietly{folder, std::make_shared<const Platform>(platform.completed())};
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
