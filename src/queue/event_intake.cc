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
  intake->mapFirstSegment();
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

void EventIntake::mapFirstSegment() {
  if (limits_.segmentBytes > MappedSegment::kMaxBytes) return;
  auto file = files_->mapNewFile(segmentPath(writeSegment_), limits_.segmentBytes);
  if (!file) {
    log_->write("Cannot map the event intake, its thread writes it: " + file.error().description());
    mapLater_ = true;
    return;
  }
  if (!*file) return;  // a file system that cannot map: the writer thread writes
  mapped_.store(true);
  auto* segment = recycledSegmentLocked();
  segment->reset(writeSegment_, std::move(*file));
  live_[writeSegment_] = segment;
  current_.store(segment);
  post(&EventIntake::prepare);
}

MappedSegment* EventIntake::recycledSegmentLocked() {
  if (!free_.empty()) {
    auto* segment = free_.back();
    free_.pop_back();
    return segment;
  }
  segments_.push_back(std::make_unique<MappedSegment>());
  return segments_.back().get();
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
  auto& queue = member == &EventIntake::drain || member == &EventIntake::prepare ? writer_ : queue_;
  queue->async([weak, member] {
    if (auto self = weak.lock()) ((*self).*member)();
  });
}

Result<uint64_t> EventIntake::accept(const IntakeRecord& record) {
  const std::size_t bytes = intakeFrameSize(record);
  // Larger frames would be skipped as damage when read back.
  // The frame stores the two names' lengths in 16 bits.
  if (record.fileName.size() > 0xFFFF || record.eventType.size() > 0xFFFF ||
      bytes - kIntakeFrameHeader > kIntakeMaxPayload ||
      (mapped_ && alignedIntakeFrame(bytes) > limits_.segmentBytes)) {
    return intakeError("The event is too large to be queued");
  }
  if (mapped_) return acceptMapped(record, alignedIntakeFrame(bytes));
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
      if (mapped_.load()) break;  // the log became mapped while this caller waited
      if (switching_) {
        lock.wait(spaceFreed_);
        continue;
      }
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
    if (mapped_.load()) {
      lock.unlock();
      return accept(record);
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

Result<uint64_t> EventIntake::acceptMapped(const IntakeRecord& record, std::size_t bytes) {
  for (;;) {
    MappedSegment* segment = current_.load();
    if (segment != nullptr) {
      // Pinned and still current: the mapping stays until this producer is done.
      segment->pin();
      if (current_.load() == segment) {
        if (auto slot = segment->reserve(bytes)) {
          segment->write(*slot, record);
          segment->unpin();
          if (feedIdle_.load() && feedIdle_.exchange(false)) post(&EventIntake::feed);
          return slot->number;
        }
      }
      segment->unpin();
    }
    if (auto refused = rollOver(segment)) return *refused;
  }
}

std::optional<OLError> EventIntake::rollOver(MappedSegment* seen) {
  bool retireSealed = false;
  {
    MutexLock lock(mutex_);
    for (;;) {
      if (closed_) return intakeError("The event queue is closed");
      MappedSegment* current = current_.load();
      if (current != seen) return std::nullopt;  // another producer rolled over meanwhile
      if (spare_ != nullptr) {
        if (current != nullptr) {
          const auto extent = current->seal();
          finished_[current->id()] = extent.end;
          mappedBase_ += extent.count;
          retireSealed = true;
        }
        spare_->setFirstNumber(mappedBase_);
        writeSegment_ = spare_->id();
        live_[writeSegment_] = spare_;
        current_.store(spare_);
        spare_ = nullptr;
        break;
      }
      if (prepareFailing_) {
        return intakeError("The event store cannot take more events: the disk refuses writes");
      }
      lock.wait(segmentReady_);
    }
  }
  post(&EventIntake::prepare);
  if (retireSealed) post(&EventIntake::retire);
  return std::nullopt;
}

void EventIntake::prepare() {
  uint64_t id;
  {
    MutexLock lock(mutex_);
    if (closed_ || spare_ != nullptr) return;
    id = writeSegment_ + 1;
    ++working_;
  }
  const std::string path = segmentPath(id);
  auto file = files_->mapNewFile(path, limits_.segmentBytes);
  if (!file) {
    // The folder removed behind our back: make it and try once more.
    (void)files_->createDirectories(folder_);
    file = files_->mapNewFile(path, limits_.segmentBytes);
  }
  std::unique_ptr<platform::MappedFile> unused;
  bool retry = false;
  {
    MutexLock lock(mutex_);
    if (file && *file && !closed_ && spare_ == nullptr && id == writeSegment_ + 1) {
      if (prepareFailing_) log_->write("The event intake can write again");
      prepareFailing_ = false;
      spare_ = recycledSegmentLocked();
      spare_->reset(id, std::move(*file));
    } else if (file && *file) {
      unused = std::move(*file);
    } else if (!closed_) {
      if (!prepareFailing_) {
        log_->write(
            "Cannot make the next segment of the event intake: " +
            (file ? std::string("the file system no longer maps") : file.error().description()));
      }
      prepareFailing_ = true;
      retry = true;
    }
  }
  segmentReady_.notify_all();
  if (unused) {
    unused.reset();
    (void)files_->remove(path);
  }
  endWork();
  if (retry) {
    std::weak_ptr<EventIntake> weak = weak_from_this();
    scheduler_->after(limits_.retrySecs, [weak] {
      if (auto self = weak.lock()) self->post(&EventIntake::prepare);
    });
  }
}

void EventIntake::retire() {
  std::vector<std::unique_ptr<platform::MappedFile>> unmapped;
  bool busy = false;
  {
    MutexLock lock(mutex_);
    MappedSegment* current = current_.load();
    for (auto it = live_.begin(); it != live_.end();) {
      MappedSegment* segment = it->second;
      // Sealed and nobody pinned: every frame reserved in it is whole, and no
      // producer will look at its mapping again.
      if (segment == current || !segment->idle()) {
        busy = busy || segment != current;
        ++it;
        continue;
      }
      unmapped.push_back(segment->unmap());
      free_.push_back(segment);
      it = live_.erase(it);
    }
    busy = busy && !retireScheduled_;
    if (busy) retireScheduled_ = true;
  }
  unmapped.clear();
  if (busy) {
    // A producer is still copying into a sealed segment: look again shortly.
    std::weak_ptr<EventIntake> weak = weak_from_this();
    scheduler_->after(0.001, [weak] {
      auto self = weak.lock();
      if (!self) return;
      {
        MutexLock lock(self->mutex_);
        self->retireScheduled_ = false;
      }
      self->post(&EventIntake::retire);
    });
  }
}

uint64_t EventIntake::acceptedCount() const {
  MutexLock lock(mutex_);
  if (mapped_) {
    const MappedSegment* current = current_.load();
    return mappedBase_ + (current != nullptr ? current->extent().count : 0);
  }
  return accepted_;
}

uint64_t EventIntake::persistedCount() const {
  if (mapped_) return acceptedCount();
  MutexLock lock(mutex_);
  return persisted_;
}

bool EventIntake::waitUntilPersisted(uint64_t upTo, std::chrono::milliseconds timeout) {
  if (mapped_) return true;
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
  mapAgain();
  endWrite();
  post(&EventIntake::feed);
}

void EventIntake::mapAgain() {
  const auto now = std::chrono::steady_clock::now();
  uint64_t id;
  {
    MutexLock lock(mutex_);
    if (!mapLater_ || mapped_.load() || closed_ || writeFailing_ || now < nextMapping_) return;
    nextMapping_ = now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                             std::chrono::duration<double>(limits_.retrySecs));
    // Past the segment the write below may roll over to.
    id = writeSegment_ + 2;
    ++working_;
  }
  auto file = files_->mapNewFile(segmentPath(id), limits_.segmentBytes);
  if (!file || !*file) {
    endWork();
    return;
  }
  {
    MutexLock lock(mutex_);
    switching_ = true;  // callers wait for the last write and then take the mapping
  }
  writePendingLocked();
  std::unique_ptr<platform::MappedFile> unused;
  {
    MutexLock lock(mutex_);
    if (pending_.empty() && !closed_) {
      finished_[writeSegment_] = writeOffset_;
      mappedBase_ = accepted_;
      auto* segment = recycledSegmentLocked();
      segment->reset(id, std::move(*file));
      segment->setFirstNumber(mappedBase_);
      writeSegment_ = id;
      writeOffset_ = 0;
      live_[id] = segment;
      current_.store(segment);
      mapped_.store(true);
      log_->write("The event intake maps its log again");
    } else {
      unused = std::move(*file);  // the write failed: it is retried as before
    }
    switching_ = false;
  }
  spaceFreed_.notify_all();
  persistedChanged_.notify_all();
  if (unused) {
    unused.reset();
    (void)files_->remove(segmentPath(id));
  } else {
    post(&EventIntake::prepare);
  }
  endWork();
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

IntakeParse EventIntake::readFile(Position at, uint64_t end, bool segmentDone) {
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
  if (!parsed.frames.empty() || bufferEnd >= end) return parsed;
  const std::size_t want =
      std::max<std::size_t>(kReadBlock, parsed.pendingFrameBytes.value_or(0) + kIntakeFrameHeader);
  const std::string path = segmentPath(at.segment);
  auto more = files_->readFileRange(
      path, bufferEnd, static_cast<std::size_t>(std::min<uint64_t>(want, end - bufferEnd)));
  if (!more || more->empty()) {
    log_->write("Cannot read the event intake: " +
                (more ? std::string("unexpected end of ") + path : more.error().description()));
    IntakeParse skip;  // what is left of this segment cannot be replayed
    skip.consumed = end - at.offset;
    return skip;
  }
  buffer_ += *more;
  return parseIntakeFrames(buffer_, bufferStart_.offset + buffer_.size() >= end && segmentDone);
}

void EventIntake::feed() {
  std::vector<std::function<void()>> ready;
  std::weak_ptr<EventIntake> weak = weak_from_this();
  // Set once this thread has told producers it may sleep; it then looks once
  // more before it does (a producer that published meanwhile may not have
  // seen the flag).
  bool idle = false;
  bool handed = false;
  for (;;) {
    for (auto& then : ready) then();
    ready.clear();
    uint64_t end = 0;
    bool segmentDone = false;
    const MappedSegment* mapping = nullptr;
    Position at;
    uint64_t generation;
    std::size_t room;
    Feed feed;
    bool nothing;
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
      // This run's segments are read through their mapping while they have one.
      if (auto it = live_.find(feedPosition_.segment); it != live_.end()) {
        mapping = it->second;
        if (!segmentDone) end = mapping->size();
      }
      notifyFedLocked(ready);
      if (outstanding_ >= limits_.outstanding) break;
      nothing = feedPosition_.offset >= end;
      if (!nothing && mapping != nullptr) ++working_;
      at = feedPosition_;
      generation = generation_;
      feed = feed_;
      room = limits_.outstanding - outstanding_;
    }
    IntakeParse parsed;
    if (!nothing) {
      if (mapping != nullptr) {
        parsed = mapping->published(at.offset, end, room);
        endWork();
      } else {
        parsed = readFile(at, end, segmentDone);
      }
      // A segment read to its end holds nothing more (its tail was damage).
      nothing = parsed.frames.empty() && parsed.consumed == 0 && (mapping || !segmentDone);
    }
    if (nothing) {
      if (!mapped_ || idle) break;
      if (handed) {
        // Producers that keep coming are read again shortly, without waking
        // this thread: only one after a pause does.
        lingerLater();
        break;
      }
      idle = true;
      feedIdle_.store(true);
      continue;
    }
    handed = true;
    if (idle) {
      idle = false;
      feedIdle_.store(false);
    }
    // Moves the feed past bytes that hold no event, unless a failure moved it meanwhile.
    if (parsed.frames.empty()) {
      MutexLock lock(mutex_);
      if (generation_ == generation) {
        feedPosition_.offset = parsed.consumed > 0 ? at.offset + parsed.consumed : end;
      }
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

void EventIntake::lingerLater() {
  {
    MutexLock lock(mutex_);
    if (lingerScheduled_) return;
    lingerScheduled_ = true;
  }
  std::weak_ptr<EventIntake> weak = weak_from_this();
  scheduler_->after(limits_.pendingAgeSecs, [weak] {
    auto self = weak.lock();
    if (!self) return;
    {
      MutexLock lock(self->mutex_);
      self->lingerScheduled_ = false;
    }
    self->post(&EventIntake::feed);
  });
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
    if (closed_) return;
    removable.swap(removable_);
  }
  for (uint64_t id : removable) (void)files_->remove(segmentPath(id));
  if (!removable.empty()) storeCheckpoint();
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
  {
    MutexLock lock(mutex_);
    checkpointScheduled_ = false;
    if (closed_) return;  // close() wrote the last one
  }
  storeCheckpoint();
}

void EventIntake::endWork() {
  {
    MutexLock lock(mutex_);
    --working_;
  }
  workDone_.notify_all();
}

void EventIntake::storeCheckpoint() {
  Position at;
  {
    MutexLock lock(mutex_);
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
  const MappedSegment* current = current_.load();
  const uint64_t writeEnd = current != nullptr ? current->extent().end : writeOffset_;
  return pending_.empty() && outstanding_ == 0 && feedPosition_.segment == writeSegment_ &&
         feedPosition_.offset >= writeEnd;
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
  MappedSegment* spare = nullptr;
  {
    MutexLock lock(mutex_);
    if (closed_) return;
    closed_ = true;
    for (auto& w : fedWaiters_) waiters.push_back(std::move(w.second));
    fedWaiters_.clear();
    // Producers that reserved their room finish their copy (the next start
    // replays it); the others are refused from now on.
    if (MappedSegment* current = current_.exchange(nullptr)) {
      const auto extent = current->seal();
      finished_[current->id()] = writeOffset_ = extent.end;
      mappedBase_ += extent.count;
    }
    std::swap(spare, spare_);
    // Once this returns, the host may do what it likes with the folder: a
    // read of a mapping whose file it then truncates would be a SIGBUS.
    while (working_ > 0) lock.wait(workDone_);
  }
  spaceFreed_.notify_all();
  segmentReady_.notify_all();
  if (spare != nullptr) {
    // Never written: nothing to replay in it.
    spare->unmap().reset();
    (void)files_->remove(segmentPath(spare->id()));
  }
  platform::removeExitHook(exitHook_);
  if (beginWrite(timeout)) {
    writePendingLocked();
    endWrite();
  }
  {
    MutexLock lock(mutex_);
    checkpointDirty_ = true;
  }
  storeCheckpoint();
  for (auto& then : waiters) then();
}

}  // namespace ostrel
