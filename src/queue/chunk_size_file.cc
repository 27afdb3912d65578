#include "queue/chunk_size_file.h"

#include <chrono>
#include <optional>

#include "platform/thread_annotations.h"

namespace ostrel {
namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr auto kInterval = std::chrono::milliseconds(5);

}  // namespace

// Shared with the blocks in flight, which may outlive the owner by an interval.
// It holds no Platform: a timer block that kept the platform (and so its
// scheduler) alive could end up releasing the scheduler on its own thread.
struct ChunkSizeFile::State {
  std::shared_ptr<platform::FileSystem> files;
  std::shared_ptr<platform::LogSink> log;
  std::string path;
  Mutex mutex;
  // Set while a write is on its way.
  std::optional<int64_t> value OSTREL_GUARDED_BY(mutex);
  SteadyClock::time_point lastWrite OSTREL_GUARDED_BY(mutex);

  // On the writer queue only.
  void writeLatest() {
    int64_t size;
    {
      MutexLock lock(mutex);
      if (!value) return;  // already written
      size = *value;
      value.reset();
      lastWrite = SteadyClock::now();
    }
    if (auto written = files->writeFileAtomic(path, std::to_string(size)); !written) {
      log->write("Cannot write chunk-size: " + written.error().description());
    }
  }
};

ChunkSizeFile::ChunkSizeFile(const Platform& platform, std::string path)
    : state_(std::make_shared<State>()),
      scheduler_(platform.scheduler),
      writer_(scheduler_->makeSerialQueue("io.ostrel.chunkSize")) {
  state_->files = platform.files;
  state_->log = platform.log;
  state_->path = std::move(path);
}

ChunkSizeFile::~ChunkSizeFile() {
  // A value waiting for its timer goes now: the timer may never fire once the
  // platform's scheduler stops. The writer queue drains as it goes.
  writer_->async([state = state_] { state->writeLatest(); });
}

void ChunkSizeFile::write(int64_t size) {
  SteadyClock::duration wait;
  {
    MutexLock lock(state_->mutex);
    const bool onItsWay = state_->value.has_value();
    state_->value = size;
    if (onItsWay) return;
    wait = state_->lastWrite + kInterval - SteadyClock::now();
  }
  auto writeLatest = [state = state_] { state->writeLatest(); };
  if (wait <= SteadyClock::duration::zero()) {
    writer_->async(std::move(writeLatest));
    return;
  }
  // The timer only hands the write to the writer queue; a writer gone by then
  // has written the value on its way out.
  scheduler_->after(std::chrono::duration<double>(wait).count(),
                    [writer = std::weak_ptr(writer_), writeLatest = std::move(writeLatest)] {
                      if (auto queue = writer.lock()) queue->async(writeLatest);
                    });
}

}  // namespace ostrel
