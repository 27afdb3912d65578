#include "emulator/event_rate.h"

#include <cmath>

namespace ostrel::emulator {
namespace {

std::size_t slot(int64_t second) {
  return static_cast<std::size_t>(second % EventRate::kSeconds);
}

}  // namespace

void EventRate::add(double at, std::size_t count) {
  const auto second = static_cast<int64_t>(std::floor(at));
  if (second < 0) return;
  std::lock_guard lock(mutex_);
  Bucket& b = buckets_[slot(second)];
  // A bucket last used a lap ago starts over.
  if (b.second != second) b = Bucket{second, 0};
  b.count += count;
}

std::vector<std::size_t> EventRate::lastSeconds(double now) const {
  const auto last = static_cast<int64_t>(std::floor(now));
  std::vector<std::size_t> counts(kSeconds, 0);
  std::lock_guard lock(mutex_);
  for (int i = 0; i < kSeconds; ++i) {
    const int64_t second = last - (kSeconds - 1) + i;
    if (second < 0) continue;
    const Bucket& b = buckets_[slot(second)];
    if (b.second == second) counts[static_cast<std::size_t>(i)] = b.count;
  }
  return counts;
}

void EventRate::clear() {
  std::lock_guard lock(mutex_);
  buckets_.fill(Bucket{});
}

}  // namespace ostrel::emulator
