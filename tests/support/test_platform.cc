#include "support/test_platform.h"

#include <fstream>
#include <sstream>

namespace ostrel::test {

void CapturingLogSink::write(std::string_view line) {
  std::lock_guard lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> CapturingLogSink::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

bool CapturingLogSink::contains(std::string_view fragment) const {
  std::lock_guard lock(mutex_);
  for (const auto& l : lines_) {
    if (l.find(fragment) != std::string::npos) return true;
  }
  return false;
}

void CapturingLogSink::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

std::string readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream out;
  out << in.rdbuf();
  return out.str();
}

TestPlatform::TestPlatform()
    : root_(dir_.path() + "/Ostrel"),
      clock_(std::make_shared<FakeClock>()),
      log_(std::make_shared<CapturingLogSink>()) {
  Platform platform;
  platform.clock = clock_;
  platform.log = log_;
  platform_ = std::make_shared<const Platform>(testing::scratchPlatform(platform, root_));
}

TestPlatform::~TestPlatform() = default;

}  // namespace ostrel::test
