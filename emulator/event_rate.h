#pragma once
// Events received per second over the last minutes, for the page's chart.
// Counted in memory, so it also counts events that are not kept.
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace ostrel::emulator {

class EventRate {
 public:
  static constexpr int kSeconds = 300;

  // Any thread.
  void add(double at, std::size_t count);
  // The counts of the kSeconds whole seconds that end with the one of `now`, oldest first.
  std::vector<std::size_t> lastSeconds(double now) const;
  void clear();

 private:
  struct Bucket {
    int64_t second = -1;
    std::size_t count = 0;
  };
  mutable std::mutex mutex_;
  std::array<Bucket, kSeconds> buckets_{};  // by second modulo kSeconds
};

}  // namespace ostrel::emulator
