#include <cstdio>
#include <mutex>

#include "platform/defaults.h"

namespace ostrel::platform {
namespace {
class StdoutLogSink final : public LogSink {
 public:
  void write(std::string_view line) override {
    // One locked write per line, so lines from several threads never interleave.
    std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
  }

 private:
  std::mutex mutex_;
};
}  // namespace

std::shared_ptr<LogSink> makeStdoutLogSink() {
  return std::make_shared<StdoutLogSink>();
}
}  // namespace ostrel::platform
