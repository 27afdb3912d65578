#include "support/test_platform.h"

#include <fstream>
#include <sstream>

namespace ostrel::test {

bool CapturingLogSink::contains(std::string_view fragment) const {
  for (const auto& l : lines())
    if (l.find(fragment) != std::string::npos) return true;
  return false;
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
