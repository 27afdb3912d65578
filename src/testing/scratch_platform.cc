#include "scratch_platform.h"

#include <stdlib.h>

#include <filesystem>

namespace ostrel::testing {

ScratchDir::ScratchDir() : ScratchDir(std::filesystem::temp_directory_path().string()) {}

ScratchDir::ScratchDir(const std::string& parent) {
  std::string pattern = parent + "/ostrel-scratch-XXXXXX";
  path_ = ::mkdtemp(pattern.data()) ? pattern : std::string();
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

Platform scratchPlatform(Platform base, const std::string& root) {
  base.storageRoot = root;
  if (!base.log) base.log = std::make_shared<SilentLogSink>();
  return base.completed();
}

}  // namespace ostrel::testing
