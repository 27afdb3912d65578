#pragma once
// The "chunk-size" file: a record of the push chunk's size in bytes. Start-up
// measures the push folder itself, so the file is only a record, and at full
// speed the size changes with every event: it is written off the caller's
// thread, at most once per interval, always ending with the latest value.
#include <cstdint>
#include <memory>
#include <string>

#include "ostrel/platform.h"

namespace ostrel {

class ChunkSizeFile {
 public:
  ChunkSizeFile(const Platform& platform, std::string path);
  // Writes what is still waiting for its interval before returning.
  ~ChunkSizeFile();
  ChunkSizeFile(const ChunkSizeFile&) = delete;
  ChunkSizeFile& operator=(const ChunkSizeFile&) = delete;

  // Any thread; a burst of changes coalesces into the latest value.
  void write(int64_t size);

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::shared_ptr<platform::Scheduler> scheduler_;
  std::shared_ptr<platform::SerialQueue> writer_;
};

}  // namespace ostrel
