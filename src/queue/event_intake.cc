#include "queue/event_intake.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>

#include "platform/process_exit.h"

namespace ostrel {
namespace {

constexpr std::size_t kReadBlock = 256 * 1024;
constexpr const char* kCheckpoint = "applied";

std::optional<uint64_t> parseSegmentName(const std::string& name) {
  constexpr std::string_view suffix = ".log";
  if (name.size() <= suffix.size() || !name.ends_with(suffix)) return std::nullopt;
  uint64_t id = 0;
  const char* end = name.data() + name.size() - suffix.size();
  auto [stop, ec] = std::from_chars(name.data(), end, id);
  if (ec != std::errc() || stop != end || id == 0) return std::nullopt;
  return id;
}

std::string segmentName(uint64_t segment) {
  char name[32];
  std::snprintf(name, sizeof name, "%020" PRIu64 ".log", segment);
  return name;
}

OLError intakeError(std::string message) {
  return OLError::LocalError(LocalErrorCodes::QueueError, std::move(message));
}

}  // namespace

std::shared_ptr<EventIntake> EventIntake::open(std::shared_ptr<platform::FileSystem> files,
                                               std::shared_ptr<platform::Scheduler> scheduler,
                                               std::shared_ptr<platform::LogSink> log,
                                               std::string folder, Limits limits) {
  auto intake = std::shared_ptr<EventIntake>(new EventIntake(
      std::move(files), std::move(scheduler), std::move(log), std::move(folder), limits));
  intake->recover();
  std::weak_ptr<EventIntake> weak = intake;
  intake->exitHook_ = platform::addExitHook([weak] {
    if (auto self = weak.lock()) self->close(std::chrono::milliseconds(1000));
  });
  return intake;
}

EventIntake::EventIntake(std::shared_ptr<platform::FileSystem> files,
                         std::shared_ptr<platform::Scheduler> scheduler,
                         std::shared_ptr<platform::LogSink> log, std::string folder, Limits limits)
    : files_(std::move(files)),
      scheduler_(std::move(scheduler)),
      log_(std::move(log)),
      folder_(std::move(folder)),
      limits_(limits),
      writer_(scheduler_->makeSerialQueue("io.ostrel.EventIntake.write")),
      queue_(scheduler_->makeSerialQueue("io.ostrel.EventIntake")) {}

EventIntake::~EventIntake() {
  close(std::chrono::milliseconds(1000));
}

std::string EventIntake::segmentPath(uint64_t segment) const {
  return folder_ + "/" + segmentName(segment);
}

std::vector<IntakeRecord> EventIntake::pendingRecords(const platform::FileSystem& files,
                                                      const std::string& folder) {
  std::vector<uint64_t> segments;
  if (auto names = files.listDirectory(folder)) {
    for (const auto& name : *names) {
      if (auto id = parseSegmentName(name)) segments.push_back(*id);
    }
  }
  std::sort(segments.begin(), segments.end());
  uint64_t segment = 0, offset = 0;
  if (auto text = files.readFile(folder + "/" + kCheckpoint)) {
    if (std::sscanf(text->c_str(), "%" SCNu64 " %" SCNu64, &segment, &offset) != 2) segment = 0;
  }
  std::vector<IntakeRecord> out;
  for (uint64_t id : segments) {
    if (id < segment) continue;
    auto bytes = files.readFile(folder + "/" + segmentName(id));
    if (!bytes) continue;
    const std::size_t from = id == segment ? std::min<uint64_t>(offset, bytes->size()) : 0;
    for (auto& frame : parseIntakeFrames(std::string_view(*bytes).substr(from), true).frames) {
      out.push_back(std::move(frame.record));
    }
  }
  return out;
}

void EventIntake::recover() {
  if (auto made = files_->createDirectories(folder_); !made) {
    log_->write("Cannot create the event intake: " + made.error().description());
  }
  std::vector<uint64_t> segments;
  if (auto names = files_->listDirectory(folder_)) {
    for (const auto& name : *names) {
      if (auto id = parseSegmentName(name)) segments.push_back(*id);
    }
  }
  std::sort(segments.begin(), segments.end());
  // The checkpoint: the end of the last event known to be in a chunk.
  Position checkpoint;
  if (auto text = files_->readFile(folder_ + "/" + kCheckpoint)) {
    uint64_t segment = 0, offset = 0;
    if (std::sscanf(text->c_str(), "%" SCNu64 " %" SCNu64, &segment, &offset) == 2) {
      checkpoint = {segment, offset};
    }
  }
  for (uint64_t id : segments) {
    if (id < checkpoint.segment) {
      (void)files_->remove(segmentPath(id));
      continue;
    }
    auto size = files_->fileSize(segmentPath(id));
    finished_[id] = size ? *size : 0;
  }
  const uint64_t last = std::max(segments.empty() ? 0 : segments.back(), checkpoint.segment);
  writeSegment_ = firstNewSegment_ = last + 1;
  if (auto it = finished_.find(checkpoint.segment); it != finished_.end()) {
    feedPosition_ = {checkpoint.segment, std::min(checkpoint.offset, it->second)};
  } else if (!finished_.empty()) {
    feedPosition_ = {finished_.begin()->first, 0};
  } else {
    feedPosition_ = {writeSegment_, 0};
  }
  applied_ = feedPosition_;
  bufferStart_ = feedPosition_;
  uint64_t left = 0;
  for (const auto& [id, end] : finished_) {
    left += id == feedPosition_.segment ? end - feedPosition_.offset : end;
  }
  if (left > 0) log_->write("Event intake: " + std::to_string(left) + " bytes to replay");
}

void EventIntake::start(Feed feed) {
  {
    MutexLock lock(mutex_);
    feed_ = std::move(feed);
  }
  post(&EventIntake::feed);
}

void EventIntake::post(void (EventIntake::*member)()) {
  std::weak_ptr<EventIntake> weak = weak_from_this();
  // Writes have a thread of their own: handing events on never delays them.
  auto& queue = member == &EventIntake::drain ? writer_ : queue_;
  queue->async([weak, member] {
    if (auto self = weak.lock()) ((*self).*member)();
  });
}

Result<uint64_t> EventIntake::accept(const IntakeRecord& record) {
  using Clock = std::chrono::steady_clock;
  std::string frame;
  appendIntakeFrame(frame, record);
  auto now = Clock::now();
  const auto maxAge = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(limits_.pendingAgeSecs));
  const auto stuck = now + std::chrono::duration_cast<Clock::duration>(
                               std::chrono::duration<double>(limits_.stuckWriterSecs));
  uint64_t number;
  bool schedule;
  {
    MutexLock lock(mutex_);
    for (;;) {
      if (closed_) return intakeError("The event queue is closed");
      if (pending_.size() >= limits_.pendingBytes) {
        if (writeFailing_) {
          return intakeError("The event store cannot take more events: the disk refuses writes");
        }
        lock.wait(spaceFreed_);
        continue;
      }
      // A failing disk is waited for by the bytes bound alone: it is retried
      // only every `retrySecs`.
      if (writeFailing_) break;
      std::optional<Clock::time_point> oldest = writingSince_;
      if (pendingCount_ > 0 && (!oldest || pendingSince_ < *oldest)) oldest = pendingSince_;
      if (!oldest || now - *oldest < maxAge) break;
      if (lock.waitUntil(spaceFreed_, stuck) == std::cv_status::timeout) break;
      now = Clock::now();
    }
    if (pendingCount_ == 0) pendingSince_ = now;
    pending_ += frame;
    ++pendingCount_;
    number = ++accepted_;
    schedule = !drainScheduled_ && !writeFailing_;
    if (schedule) drainScheduled_ = true;
  }
  if (schedule) post(&EventIntake::drain);
  return number;
}

uint64_t EventIntake::acceptedCount() const {
  MutexLock lock(mutex_);
  return accepted_;
}

uint64_t EventIntake::persistedCount() const {
  MutexLock lock(mutex_);
  return persisted_;
}

bool EventIntake::waitUntilPersisted(uint64_t upTo, std::chrono::milliseconds timeout) {
  MutexLock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (persisted_ < upTo) {
    if (lock.waitUntil(persistedChanged_, deadline) == std::cv_status::timeout) {
      return persisted_ >= upTo;
    }
  }
  return true;
}

void EventIntake::setPersistedObserver(std::function<void(uint64_t)> observer) {
  MutexLock lock(mutex_);
  persistedObserver_ = std::move(observer);
}

void EventIntake::drain() {
  {
    MutexLock lock(mutex_);
    drainScheduled_ = false;
  }
  (void)beginWrite(std::nullopt);
  writePendingLocked();
  endWrite();
  post(&EventIntake::feed);
}

bool EventIntake::beginWrite(std::optional<std::chrono::milliseconds> timeout) {
  MutexLock lock(mutex_);
  if (timeout) {
    const auto deadline = std::chrono::steady_clock::now() + *timeout;
    while (writing_) {
      if (lock.waitUntil(writerFree_, deadline) == std::cv_status::timeout) {
        if (writing_) return false;
        break;
      }
    }
  } else {
    while (writing_) lock.wait(writerFree_);
  }
  writing_ = true;
  return true;
}

void EventIntake::endWrite() {
  {
    MutexLock lock(mutex_);
    writing_ = false;
  }
  writerFree_.notify_all();
}

void EventIntake::writePendingLocked() {
  std::string batch;
  uint64_t count;
  std::string path;
  {
    MutexLock lock(mutex_);
    if (pending_.empty()) return;
    batch.swap(pending_);
    count = pendingCount_;
    pendingCount_ = 0;
    writingSince_ = pendingSince_;
    if (writeOffset_ >= limits_.segmentBytes) {
      finished_[writeSegment_] = writeOffset_;
      ++writeSegment_;
      writeOffset_ = 0;
    }
    path = segmentPath(writeSegment_);
  }
  auto written = files_->appendToFile(path, batch);
  if (!written) {
    // Folder removed behind our back: make it and try once more.
    (void)files_->createDirectories(folder_);
    written = files_->appendToFile(path, batch);
  }
  std::function<void(uint64_t)> observer;
  uint64_t persisted;
  {
    MutexLock lock(mutex_);
    const auto batchSince = writingSince_;
    writingSince_.reset();
    if (written) {
      writeOffset_ += batch.size();
      persisted_ += count;
      writeFailing_ = false;
    } else {
      // What reached the file may be a torn prefix: that segment ends where the
      // file ends, and the batch goes again, whole, into a new one.
      auto size = files_->fileSize(path);
      finished_[writeSegment_] = size ? *size : writeOffset_;
      ++writeSegment_;
      writeOffset_ = 0;
      pending_.insert(0, batch);
      pendingCount_ += count;
      if (batchSince) pendingSince_ = *batchSince;
      if (!writeFailing_)
        log_->write("Cannot write the event intake: " + written.error().description());
      writeFailing_ = true;
      drainScheduled_ = true;
    }
    persisted = persisted_;
    observer = persistedObserver_;
  }
  persistedChanged_.notify_all();
  spaceFreed_.notify_all();
  if (!written) {
    std::weak_ptr<EventIntake> weak = weak_from_this();
    scheduler_->after(limits_.retrySecs, [weak] {
      if (auto self = weak.lock()) self->post(&EventIntake::drain);
    });
    return;
  }
  if (observer) observer(persisted);
}

void EventIntake::feed() {
  std::vector<std::function<void()>> ready;
  std::weak_ptr<EventIntake> weak = weak_from_this();
  for (;;) {
    for (auto& then : ready) then();
    ready.clear();
    std::string path;
    uint64_t end = 0;
    bool segmentDone = false;
    Position at;
    uint64_t generation;
    Feed feed;
    {
      MutexLock lock(mutex_);
      if (closed_ || !feed_) break;
      // Past the end of a finished (or vanished) segment: on to the next one.
      for (;;) {
        if (feedPosition_.segment == writeSegment_) {
          end = writeOffset_;
          segmentDone = false;
          break;
        }
        auto it = finished_.find(feedPosition_.segment);
        if (it != finished_.end() && feedPosition_.offset < it->second) {
          end = it->second;
          segmentDone = true;
          break;
        }
        auto next = finished_.upper_bound(feedPosition_.segment);
        feedPosition_ = {next != finished_.end() ? next->first : writeSegment_, 0};
      }
      notifyFedLocked(ready);
      if (outstanding_ >= limits_.outstanding || feedPosition_.offset >= end) break;
      at = feedPosition_;
      generation = generation_;
      feed = feed_;
      path = segmentPath(at.segment);
    }
    // Moves the feed past bytes that hold no event, unless a failure moved it meanwhile.
    auto skipTo = [&](uint64_t offset) {
      MutexLock lock(mutex_);
      if (generation_ == generation) feedPosition_.offset = offset;
    };
    // The buffer holds the segment from bufferStart_ on (the feed may have
    // moved back after a failure: then it starts over).
    if (bufferStart_.segment != at.segment || at.offset < bufferStart_.offset ||
        at.offset - bufferStart_.offset > buffer_.size()) {
      buffer_.clear();
    } else {
      buffer_.erase(0, static_cast<std::size_t>(at.offset - bufferStart_.offset));
    }
    bufferStart_ = at;
    auto parsed = parseIntakeFrames(buffer_, false);
    const uint64_t bufferEnd = bufferStart_.offset + buffer_.size();
    if (parsed.frames.empty() && bufferEnd < end) {
      const std::size_t want = std::max<std::size_t>(
          kReadBlock, parsed.pendingFrameBytes.value_or(0) + kIntakeFrameHeader);
      auto more = files_->readFileRange(
          path, bufferEnd, static_cast<std::size_t>(std::min<uint64_t>(want, end - bufferEnd)));
      if (!more || more->empty()) {
        log_->write("Cannot read the event intake: " +
                    (more ? std::string("unexpected end of ") + path : more.error().description()));
        skipTo(end);  // what is left of this segment cannot be replayed
        continue;
      }
      buffer_ += *more;
      parsed =
          parseIntakeFrames(buffer_, bufferStart_.offset + buffer_.size() >= end && segmentDone);
    }
    if (parsed.frames.empty()) {
      if (parsed.consumed > 0) {
        skipTo(at.offset + parsed.consumed);  // damage only
        continue;
      }
      if (!segmentDone) break;  // cannot happen: the writer writes whole frames
      skipTo(end);
      continue;
    }
    for (auto& frame : parsed.frames) {
      Position after{at.segment, at.offset + frame.end};
      uint64_t newCount;
      {
        MutexLock lock(mutex_);
        // A failure meanwhile moved the feed back: stop handing this block on.
        if (closed_ || outstanding_ >= limits_.outstanding || generation_ != generation) break;
        feedPosition_ = after;
        ++outstanding_;
        if (after.segment >= firstNewSegment_) fedNew_ = std::max(fedNew_, ++feedNewCount_);
        newCount = feedNewCount_;
        notifyFedLocked(ready);
      }
      Ticket ticket;
      ticket.wanted = [weak, generation] {
        auto self = weak.lock();
        if (!self) return false;
        MutexLock lock(self->mutex_);
        return self->generation_ == generation && !self->closed_;
      };
      ticket.done = [weak, after, newCount, generation](bool ok) {
        if (auto self = weak.lock()) self->applied(after, newCount, generation, ok);
      };
      feed(std::move(frame.record), std::move(ticket));
    }
  }
  for (auto& then : ready) then();
}

bool EventIntake::fedLocked(uint64_t upTo) const {
  // What a previous run left comes first: it is all handed on once the feed
  // has reached this run's segments.
  return closed_ || (fedNew_ >= upTo && feedPosition_.segment >= firstNewSegment_);
}

void EventIntake::notifyFedLocked(std::vector<std::function<void()>>& ready) {
  auto it =
      std::partition(fedWaiters_.begin(), fedWaiters_.end(),
                     [&](const auto& w) OSTREL_REQUIRES(mutex_) { return !fedLocked(w.first); });
  for (auto i = it; i != fedWaiters_.end(); ++i) ready.push_back(std::move(i->second));
  fedWaiters_.erase(it, fedWaiters_.end());
}

void EventIntake::whenFed(uint64_t upTo, std::function<void()> then) {
  {
    MutexLock lock(mutex_);
    if (!fedLocked(upTo)) {
      fedWaiters_.emplace_back(upTo, std::move(then));
      return;
    }
  }
  then();
}

void EventIntake::applied(Position after, uint64_t newCount, uint64_t generation, bool ok) {
  bool followUp = false;
  bool retry = false;
  {
    MutexLock lock(mutex_);
    if (generation != generation_) return;  // handed before a failure; handed again since
    --outstanding_;
    if (ok) {
      applied_ = after;
      appliedNew_ = newCount;
      checkpointDirty_ = true;
      const std::size_t before = removable_.size();
      trimLocked(after, removable_);
      followUp = removable_.size() > before || outstanding_ <= limits_.outstanding / 2;
    } else if (closed_) {
      return;  // skipped at shutdown: replayed at the next start
    } else {
      // The chunk write failed (a full disk): hand everything from this event
      // on again later, in order; what is in flight is no longer wanted.
      ++generation_;
      outstanding_ = 0;
      feedPosition_ = applied_;
      feedNewCount_ = appliedNew_;
      retry = !feedRetryScheduled_;
      feedRetryScheduled_ = true;
    }
    if (followUp) {
      followUp = !followUpScheduled_;
      followUpScheduled_ = true;
    }
  }
  persistedChanged_.notify_all();
  if (ok) scheduleCheckpoint();
  if (followUp) post(&EventIntake::afterApplied);
  if (retry) {
    log_->write("Cannot append to the event queue; trying again later");
    std::weak_ptr<EventIntake> weak = weak_from_this();
    scheduler_->after(limits_.retrySecs, [weak] {
      auto self = weak.lock();
      if (!self) return;
      {
        MutexLock lock(self->mutex_);
        self->feedRetryScheduled_ = false;
      }
      self->post(&EventIntake::feed);
    });
  }
}

void EventIntake::afterApplied() {
  std::vector<uint64_t> removable;
  {
    MutexLock lock(mutex_);
    followUpScheduled_ = false;
    removable.swap(removable_);
  }
  for (uint64_t id : removable) (void)files_->remove(segmentPath(id));
  if (!removable.empty()) writeCheckpoint();
  feed();
}

void EventIntake::trimLocked(Position after, std::vector<uint64_t>& removable) {
  for (auto it = finished_.begin(); it != finished_.end();) {
    const bool before = it->first < after.segment;
    const bool whole = it->first == after.segment && after.offset >= it->second;
    if (!before && !whole) break;
    removable.push_back(it->first);
    it = finished_.erase(it);
  }
}

void EventIntake::scheduleCheckpoint() {
  {
    MutexLock lock(mutex_);
    if (checkpointScheduled_) return;
    checkpointScheduled_ = true;
  }
  std::weak_ptr<EventIntake> weak = weak_from_this();
  scheduler_->after(limits_.checkpointSecs, [weak] {
    if (auto self = weak.lock()) self->post(&EventIntake::writeCheckpoint);
  });
}

void EventIntake::writeCheckpoint() {
  Position at;
  {
    MutexLock lock(mutex_);
    checkpointScheduled_ = false;
    if (!checkpointDirty_) return;
    checkpointDirty_ = false;
    at = applied_;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%" PRIu64 " %" PRIu64 "\n", at.segment, at.offset);
  if (auto written = files_->writeFileAtomic(folder_ + "/" + kCheckpoint, text); !written) {
    log_->write("Cannot write the event intake checkpoint: " + written.error().description());
  }
}

bool EventIntake::isDrained() const {
  MutexLock lock(mutex_);
  return pending_.empty() && outstanding_ == 0 && feedPosition_.segment == writeSegment_ &&
         feedPosition_.offset >= writeOffset_;
}

void EventIntake::waitForProgress(std::chrono::milliseconds timeout) {
  MutexLock lock(mutex_);
  lock.waitUntil(persistedChanged_, std::chrono::steady_clock::now() + timeout);
}

void EventIntake::kick() {
  post(&EventIntake::feed);
}

void EventIntake::close(std::chrono::milliseconds timeout) {
  std::vector<std::function<void()>> waiters;
  {
    MutexLock lock(mutex_);
    if (closed_) return;
    closed_ = true;
    for (auto& w : fedWaiters_) waiters.push_back(std::move(w.second));
    fedWaiters_.clear();
  }
  spaceFreed_.notify_all();
  platform::removeExitHook(exitHook_);
  if (beginWrite(timeout)) {
    writePendingLocked();
    endWrite();
  }
  {
    MutexLock lock(mutex_);
    checkpointDirty_ = true;
  }
  writeCheckpoint();
  for (auto& then : waiters) then();
}

}  // namespace ostrel
