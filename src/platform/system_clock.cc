#include <chrono>

#include "platform/defaults.h"

namespace ostrel::platform {
namespace {
class SystemClock final : public Clock {
 public:
  double now() const override {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
  }
};
}  // namespace

std::shared_ptr<Clock> makeSystemClock() {
  return std::make_shared<SystemClock>();
}
}  // namespace ostrel::platform
