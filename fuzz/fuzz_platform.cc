#include "fuzz_platform.h"

#include <cstdlib>
#include <filesystem>

#include "ostrel/platform.h"
#include "platform/defaults.h"
#include "platform/runtime.h"

namespace ostrel::fuzz {
namespace {

class Quiet : public platform::LogSink {
 public:
  void write(std::string_view) override {}
};

PlatformRef& quiet() {
  static PlatformRef made;
  return made;
}

}  // namespace

const PlatformRef& quietPlatform() {
  installQuietPlatform();
  return quiet();
}

const std::string& installQuietPlatform() {
  static const std::string root = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "ostrel-fuzz-XXXXXX").string();
    const char* made = ::mkdtemp(pattern.data());
    // Kept for the exit handler, which runs after the statics are gone.
    static auto* const temporary = new std::string(made ? made : pattern.c_str());
    std::string folder = *temporary + "/Ostrel";
    Platform platform;
    platform.log = std::make_shared<Quiet>();
    platform.files = platform::makePosixFileSystem(folder);
    platform.settings = platform::makeFileSettingsStore(platform.files, folder + "/settings.json");
    runtime::install(platform);
    quiet() = std::make_shared<const Platform>(runtime::current());
    // The folder goes with the process, whatever way it ends.
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(*temporary, ec);
    });
    return folder;
  }();
  return root;
}

}  // namespace ostrel::fuzz
