#pragma once
// The write-ahead intake of the event queue. An event that a producer accepted
// is in memory only until the intake's writer thread appends it, with every other
// event accepted meanwhile, in one write to a log segment ("EventIntake/<n>.log").
// From there the intake hands events to the chunked queue at the queue's pace,
// never more than a bounded number at a time, and deletes a segment once all
// of its events are in chunks. A process that is killed replays, at its next
// start, what its log holds beyond the last checkpoint: an event can reach the
// chunks twice, never not at all.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/platform/file_system.h"
#include "ostrel/platform/log_sink.h"
#include "ostrel/platform/scheduler.h"
#include "ostrel/result.h"
#include "platform/thread_annotations.h"
#include "queue/intake_frame.h"

namespace ostrel {

class EventIntake : public std::enable_shared_from_this<EventIntake> {
 public:
  struct Limits {
    // Accepted bytes waiting for their write; past it accept() waits for the disk.
    std::size_t pendingBytes = 512u << 10;
    // Age of the oldest unwritten event past which accept() waits for the writer:
    // what a kill can take is what was accepted this long before the writer fell
    // behind, however long the system then keeps it from writing (no free core,
    // a write held by the kernel under heavy disk traffic).
    double pendingAgeSecs = 0.002;
    // A writer held longer than this is stuck rather than late: accept() goes on,
    // and only `pendingBytes` holds it back.
    double stuckWriterSecs = 1.0;
    // Events handed to the chunked queue and not yet appended.
    std::size_t outstanding = 512;
    // A segment is closed once it holds this much.
    uint64_t segmentBytes = 1u << 20;
    // How often the position of the last appended event is recorded, at most.
    double checkpointSecs = 0.01;
    // Wait after a failed write or append before trying again.
    double retrySecs = 1.0;
  };

  // One event handed to the chunked queue. `wanted()` is false once the intake
  // no longer expects it (an earlier one failed and will be handed again);
  // `done(appended)` must be called exactly once, from any thread.
  struct Ticket {
    std::function<bool()> wanted;
    std::function<void(bool appended)> done;
  };
  using Feed = std::function<void(IntakeRecord, Ticket)>;

  // Opens the log in `folder` (created when missing); replays nothing yet.
  // `log` takes the console lines about the disk.
  static std::shared_ptr<EventIntake> open(std::shared_ptr<platform::FileSystem> files,
                                           std::shared_ptr<platform::Scheduler> scheduler,
                                           std::shared_ptr<platform::LogSink> log,
                                           std::string folder, Limits limits);
  ~EventIntake();
  EventIntake(const EventIntake&) = delete;
  EventIntake& operator=(const EventIntake&) = delete;

  // Starts handing events (first those a previous run left) to `feed`, which
  // runs on the intake's thread.
  void start(Feed feed);

  // Takes one event; any thread. Touches no file: the event is durable once
  // the intake's writer thread has written it, a few hundred microseconds later.
  // Answers the event's number in this run (from 1). Waits while more than
  // `pendingBytes` are unwritten, or while the oldest unwritten event is older
  // than `pendingAgeSecs`; fails when the intake was closed or the disk has
  // refused every write for a while and memory is full.
  Result<uint64_t> accept(const IntakeRecord& record);

  uint64_t acceptedCount() const;
  uint64_t persistedCount() const;
  // Waits until events 1..`upTo` of this run are written; false on time-out.
  bool waitUntilPersisted(uint64_t upTo, std::chrono::milliseconds timeout);
  // Runs `then` once events 1..`upTo` of this run, and all that a previous
  // run left, were handed to the feed (at once, on the caller's thread, when
  // they were; else on the intake's thread).
  void whenFed(uint64_t upTo, std::function<void()> then);
  // True when nothing waits to be written, handed or appended.
  bool isDrained() const;
  // Waits until an event is written or appended, or the time-out passes.
  void waitForProgress(std::chrono::milliseconds timeout);
  // Hands on again at once after a pause (a failed append is retried later).
  void kick();

  // Writes what is accepted and unwritten, records the checkpoint and stops
  // handing events on; later accept() calls fail. Waits at most `timeout` for
  // a write that is under way. Idempotent; also run at process exit.
  void close(std::chrono::milliseconds timeout);

  // For benchmarks: called on the intake's writer thread with the number of events
  // of this run written so far, after every write.
  void setPersistedObserver(std::function<void(uint64_t)> observer);

  // Read only, for tools: the events of the log in `folder` that are not known
  // to be in chunks yet, oldest first, whole frames only.
  static std::vector<IntakeRecord> pendingRecords(const platform::FileSystem& files,
                                                  const std::string& folder);

  // The folder name under the storage root.
  static constexpr const char* kFolder = "EventIntake";

 private:
  struct Position {
    uint64_t segment = 0;
    uint64_t offset = 0;
  };

  EventIntake(std::shared_ptr<platform::FileSystem> files,
              std::shared_ptr<platform::Scheduler> scheduler,
              std::shared_ptr<platform::LogSink> log, std::string folder, Limits limits);
  // Runs before the intake is shared with any other thread, so without the lock.
  void recover() OSTREL_NO_THREAD_SAFETY_ANALYSIS;
  std::string segmentPath(uint64_t segment) const;
  void drain();
  // Takes the writer's turn (false when `timeout` passed first) and gives it back.
  bool beginWrite(std::optional<std::chrono::milliseconds> timeout);
  void endWrite();
  // Writes `pending_`; the caller has the writer's turn.
  void writePendingLocked();
  void feed();
  // Called by the chunked queue's thread as each event settles: the state
  // changes at once (so the next append already sees a failure), the file
  // work and the next hand-over happen on the intake's thread.
  void applied(Position after, uint64_t newCount, uint64_t generation, bool ok);
  void afterApplied();
  void trimLocked(Position after, std::vector<uint64_t>& removable) OSTREL_REQUIRES(mutex_);
  void scheduleCheckpoint();
  void writeCheckpoint();
  void notifyFedLocked(std::vector<std::function<void()>>& ready) OSTREL_REQUIRES(mutex_);
  bool fedLocked(uint64_t upTo) const OSTREL_REQUIRES(mutex_);
  void post(void (EventIntake::*member)());

  const std::shared_ptr<platform::FileSystem> files_;
  const std::shared_ptr<platform::Scheduler> scheduler_;
  const std::shared_ptr<platform::LogSink> log_;
  const std::string folder_;
  const Limits limits_;
  std::shared_ptr<platform::SerialQueue> writer_;  // appends to the log
  std::shared_ptr<platform::SerialQueue> queue_;   // hands events on, trims, checkpoints
  Feed feed_;
  uint64_t exitHook_ = 0;

  mutable Mutex mutex_;
  // One writer at a time: the writer thread, or close() on another thread.
  std::condition_variable writerFree_;
  bool writing_ OSTREL_GUARDED_BY(mutex_) = false;
  std::condition_variable persistedChanged_;
  std::condition_variable spaceFreed_;
  std::string pending_ OSTREL_GUARDED_BY(mutex_);  // frames accepted and not written
  uint64_t pendingCount_ OSTREL_GUARDED_BY(mutex_) = 0;
  // When the oldest event of `pending_`, and of the batch being written, was accepted.
  std::chrono::steady_clock::time_point pendingSince_ OSTREL_GUARDED_BY(mutex_);
  std::optional<std::chrono::steady_clock::time_point> writingSince_ OSTREL_GUARDED_BY(mutex_);
  uint64_t accepted_ OSTREL_GUARDED_BY(mutex_) = 0;
  uint64_t persisted_ OSTREL_GUARDED_BY(mutex_) = 0;
  bool drainScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  bool closed_ OSTREL_GUARDED_BY(mutex_) = false;
  bool writeFailing_ OSTREL_GUARDED_BY(mutex_) = false;
  double retryWriteAt_ OSTREL_GUARDED_BY(mutex_) = 0;
  // The segment being written, and the final length of every older one.
  uint64_t writeSegment_ OSTREL_GUARDED_BY(mutex_) = 1;
  uint64_t writeOffset_ OSTREL_GUARDED_BY(mutex_) = 0;
  std::map<uint64_t, uint64_t> finished_ OSTREL_GUARDED_BY(mutex_);
  uint64_t firstNewSegment_ OSTREL_GUARDED_BY(mutex_) = 1;
  // Handing on: the next frame to read, the events in flight, how many events
  // of this run were handed, and the end of the last event appended.
  Position feedPosition_ OSTREL_GUARDED_BY(mutex_);
  uint64_t feedNewCount_ OSTREL_GUARDED_BY(mutex_) = 0;
  uint64_t fedNew_ OSTREL_GUARDED_BY(mutex_) = 0;
  std::size_t outstanding_ OSTREL_GUARDED_BY(mutex_) = 0;
  uint64_t generation_ OSTREL_GUARDED_BY(mutex_) = 0;
  Position applied_ OSTREL_GUARDED_BY(mutex_);
  uint64_t appliedNew_ OSTREL_GUARDED_BY(mutex_) = 0;
  bool checkpointScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  bool checkpointDirty_ OSTREL_GUARDED_BY(mutex_) = false;
  bool feedRetryScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  bool followUpScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  std::vector<uint64_t> removable_ OSTREL_GUARDED_BY(mutex_);  // segments all appended, to delete
  std::vector<std::pair<uint64_t, std::function<void()>>> fedWaiters_ OSTREL_GUARDED_BY(mutex_);
  std::function<void(uint64_t)> persistedObserver_ OSTREL_GUARDED_BY(mutex_);
  // Bytes of the segment being read, from `bufferStart_` on.
  std::string buffer_;
  Position bufferStart_;
};

}  // namespace ostrel
