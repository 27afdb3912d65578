#pragma once
// What callbacks on other threads saw, in the order they saw it.
#include <mutex>
#include <vector>

namespace ostrel::test {

template <class T>
class Recorder {
 public:
  void add(T value) {
    std::lock_guard lock(mutex_);
    values_.push_back(std::move(value));
  }
  std::vector<T> values() const {
    std::lock_guard lock(mutex_);
    return values_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    values_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<T> values_;
};

}  // namespace ostrel::test
