#pragma once
// The write-ahead intake of the event queue. On a file system that maps files
// (the default one), accept() copies the event's frame into a log segment
// ("EventIntake/<n>.log") mapped into memory: when accept() returns, the event
// is in the file, in the kernel's page cache, and a kill of the process at any
// moment after that keeps it. That is no promise against a power cut, which
// takes what the kernel has not yet written to the device (nothing is synced).
// Producers reserve their room with one atomic step and copy at the same time,
// on their own threads, with no file call and no lock; the intake's writer
// thread creates the next segment, mapped and faulted in, before it is needed,
// so that a producer waits only when it fills a segment before that thread
// has made the next one. On a file system that cannot map (a host's own), the
// event is in memory until the writer thread appends it, with every other
// event accepted meanwhile, in one write.
// From the log the intake hands events to the chunked queue at the queue's
// pace, never more than a bounded number at a time, and deletes a segment once
// all of its events are in chunks. A process that is killed replays, at its
// next start, what its log holds beyond the last checkpoint, skipping frames
// a kill tore and room never written: an event can reach the chunks twice,
// never not at all.
#include <atomic>
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
#include "queue/intake_segment.h"

namespace ostrel {

class EventIntake : public std::enable_shared_from_this<EventIntake> {
 public:
  struct Limits {
    // The next three hold when the file system cannot map files.
    // Accepted bytes waiting for their write; past it accept() waits for the disk.
    std::size_t pendingBytes = 512u << 10;
    // Age of the oldest unwritten event past which accept() waits for the writer
    // (mapped: how long the intake's thread keeps reading before it sleeps):
    // what a kill can take is what was accepted this long before the writer fell
    // behind, however long the system then keeps it from writing (no free core,
    // a write held by the kernel under heavy disk traffic).
    double pendingAgeSecs = 0.002;
    // A writer held longer than this is stuck rather than late: accept() goes on,
    // and only `pendingBytes` holds it back.
    double stuckWriterSecs = 1.0;
    // Events handed to the chunked queue and not yet appended.
    std::size_t outstanding = 512;
    // A segment is closed once it holds this much; a mapped segment has this size.
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

  // Takes one event; any thread. Makes no file call. Answers the event's
  // number in this run (from 1, in the order of the log).
  // Mapped: the event is in the file when this returns. Waits only when the
  // next segment is not made yet; fails when the intake was closed, or when
  // the current segment is full and the disk refuses the next one.
  // Not mapped: the event is durable once the intake's writer thread has
  // written it, a few hundred microseconds later. Waits while more than
  // `pendingBytes` are unwritten, or while the oldest unwritten event is older
  // than `pendingAgeSecs`; fails when the intake was closed or the disk has
  // refused every write for a while and memory is full.
  // Fails too for an event larger than a segment.
  Result<uint64_t> accept(const IntakeRecord& record);
  // True when the log is mapped: accept() returns only once the event is on disk.
  // Not mapped at first for want of room or memory, it is mapped as soon as
  // the file system can (tried again every `retrySecs` while events come).
  bool mapsLog() const { return mapped_.load(); }

  uint64_t acceptedCount() const;
  uint64_t persistedCount() const;
  // Waits until events 1..`upTo` of this run are written; false on time-out.
  // Mapped, every event whose accept() returned is: answers true at once.
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
  // of this run written so far, after every write (never when mapped).
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
  // Maps the first segment of this run, or settles for the writer thread.
  void mapFirstSegment() OSTREL_NO_THREAD_SAFETY_ANALYSIS;
  // On the writer thread, with the writer's turn: when the first mapping
  // failed, maps a segment now and moves the callers over to it.
  void mapAgain();
  Result<uint64_t> acceptMapped(const IntakeRecord& record, std::size_t bytes);
  // A producer found `seen` full (or no longer current): installs the next
  // segment, or waits for it; an error when none can come.
  std::optional<OLError> rollOver(MappedSegment* seen);
  // On the writer thread: makes the next segment before it is needed.
  void prepare();
  // On the intake's thread: unmaps sealed segments nobody writes any more.
  void retire();
  MappedSegment* recycledSegmentLocked() OSTREL_REQUIRES(mutex_);
  std::string segmentPath(uint64_t segment) const;
  void drain();
  // Takes the writer's turn (false when `timeout` passed first) and gives it back.
  bool beginWrite(std::optional<std::chrono::milliseconds> timeout);
  void endWrite();
  // Writes `pending_`; the caller has the writer's turn.
  void writePendingLocked();
  void feed();
  // Mapped: reads the log again in a moment, rather than being woken.
  void lingerLater();
  // The frames of a segment's file from `at` on, up to `end`; when the file
  // cannot be read, no frame and all of it consumed.
  IntakeParse readFile(Position at, uint64_t end, bool segmentDone);
  // Called by the chunked queue's thread as each event settles: the state
  // changes at once (so the next append already sees a failure), the file
  // work and the next hand-over happen on the intake's thread.
  void applied(Position after, uint64_t newCount, uint64_t generation, bool ok);
  void afterApplied();
  void trimLocked(Position after, std::vector<uint64_t>& removable) OSTREL_REQUIRES(mutex_);
  void scheduleCheckpoint();
  // Posted: writes the checkpoint unless the intake was closed meanwhile.
  void writeCheckpoint();
  void storeCheckpoint();
  // Ends a read of a mapping or the making of a segment, which close() waits for.
  void endWork();
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
  // The mapped log. `mapped_` is set before the intake is shared, or later by
  // mapAgain(), never cleared. Producers reach the current segment through
  // `current_` alone.
  std::atomic<bool> mapped_{false};
  bool mapLater_ = false;  // set before the intake is shared
  bool switching_ OSTREL_GUARDED_BY(mutex_) = false;
  std::chrono::steady_clock::time_point nextMapping_ OSTREL_GUARDED_BY(mutex_);
  std::atomic<MappedSegment*> current_{nullptr};
  // Set by the intake's thread before it sleeps with nothing published to
  // read; the producer that clears it wakes the thread.
  std::atomic<bool> feedIdle_{false};
  std::condition_variable segmentReady_;
  MappedSegment* spare_ OSTREL_GUARDED_BY(mutex_) = nullptr;
  bool prepareFailing_ OSTREL_GUARDED_BY(mutex_) = false;
  bool retireScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  bool lingerScheduled_ OSTREL_GUARDED_BY(mutex_) = false;
  // Reads of a mapping and makings of a segment under way outside the lock;
  // none starts once the intake is closed.
  int working_ OSTREL_GUARDED_BY(mutex_) = 0;
  std::condition_variable workDone_;
  // Events of this run in the segments before the current one.
  uint64_t mappedBase_ OSTREL_GUARDED_BY(mutex_) = 0;
  // This run's segments still mapped, by id; segment objects to reuse; all of them.
  std::map<uint64_t, MappedSegment*> live_ OSTREL_GUARDED_BY(mutex_);
  std::vector<MappedSegment*> free_ OSTREL_GUARDED_BY(mutex_);
  std::vector<std::unique_ptr<MappedSegment>> segments_ OSTREL_GUARDED_BY(mutex_);
  // Bytes of the segment being read, from `bufferStart_` on.
  std::string buffer_;
  Position bufferStart_;
};

}  // namespace ostrel
