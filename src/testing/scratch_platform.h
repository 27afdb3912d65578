#pragma once
// The one fake platform that tests, benchmarks and fuzz targets share: a
// temporary folder of their own, and the real defaults over it with a log
// that says nothing unless asked to.
#include <memory>
#include <string>

#include "ostrel/platform.h"

namespace ostrel::testing {

// A fresh folder under the system's temporary folder (or under `parent`),
// removed with its content on destruction.
class ScratchDir {
 public:
  ScratchDir();
  explicit ScratchDir(const std::string& parent);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class SilentLogSink : public platform::LogSink {
 public:
  void write(std::string_view) override {}
};

// `base` with the library's files under `root` (unless it brings its own), a
// silent log unless it has one, and every other empty member filled with its
// default.
Platform scratchPlatform(Platform base, const std::string& root);

}  // namespace ostrel::testing
