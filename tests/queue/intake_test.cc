// The write-ahead intake, with its log mapped and written by its thread: its
// frames survive tearing and damage, a restart replays exactly what was not
// yet in chunks, a full disk loses nothing and hangs nobody, producers racing
// across segment rollovers lose nothing, and no more than the limit is ever
// in flight; once closed, it leaves its folder to the host.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <thread>

#include "platform/defaults.h"
#include "queue/event_intake.h"
#include "queue/intake_segment.h"
#include "support/eventually.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using test::eventually;

IntakeRecord record(int i) {
  return {"1700000000" + std::to_string(100000 + i) + "-event-custom", "custom",
          "archive of event " + std::to_string(i)};
}

TEST(IntakeFrameTest, TornAndDamagedBytesNeverHideTheFramesAround) {
  std::string a, b, c;
  appendIntakeFrame(a, record(1));
  appendIntakeFrame(b, record(2));
  appendIntakeFrame(c, record(3));
  std::string flipped = b;
  flipped[flipped.size() - 2] ^= 0x20;  // a payload byte: the checksum no longer matches
  std::string slash = "";
  appendIntakeFrame(slash, {"../escape", "custom", "x"});
  // As a mapped segment holds them: aligned, padded with zeros.
  auto aligned = [](std::string frame) {
    frame.resize(alignedIntakeFrame(frame.size()), '\0');
    return frame;
  };
  // A producer killed mid-copy: the frame has no magic yet (it is stored last).
  std::string killed = aligned(b);
  std::fill(killed.begin(), killed.begin() + 4, '\0');
  std::fill(killed.begin() + 20, killed.end(), '\0');
  const std::string blank(64, '\0');
  struct Case {
    const char* what;
    std::string bytes;
    bool atEnd;  // a read that stops short of the end leaves a torn frame pending
    std::vector<int> events;
  };
  const std::vector<Case> cases = {
      {"torn at the end of a segment", a + b + c.substr(0, c.size() - 3), true, {1, 2}},
      {"cut by the read, more to come", a + b + c.substr(0, c.size() - 3), false, {1, 2}},
      {"garbage between frames", a + "\x01\x02OLI1zz\x7f" + b, true, {1, 2}},
      {"a damaged payload", a + flipped + c, true, {1, 3}},
      {"a name leaving its folder", a + slash + c, true, {1, 3}},
      {"a header cut short", a + b.substr(0, 6), true, {1}},
      {"mapped: torn by a killed producer", aligned(a) + killed + aligned(c) + blank, true, {1, 3}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto parsed = parseIntakeFrames(c.bytes, c.atEnd);
    std::vector<std::string> read, archives;
    for (const auto& f : parsed.frames) read.push_back(f.record.archive);
    for (int i : c.events) archives.push_back(record(i).archive);
    EXPECT_EQ(read, archives);
    EXPECT_EQ(parsed.pendingFrameBytes.has_value(), !c.atEnd);
    if (c.atEnd) {
      EXPECT_EQ(parsed.consumed, c.bytes.size());
    }
  }
}

// A file system whose appends, new files and mappings fail while `full` is
// set, whose appends do not return while `held` is set (a write the kernel
// holds), and that maps files only when `maps` is set.
class FillableFileSystem : public platform::FileSystem {
 public:
  explicit FillableFileSystem(std::shared_ptr<platform::FileSystem> real)
      : real_(std::move(real)) {}
  std::atomic<bool> full{false};
  std::atomic<bool> held{false};
  std::atomic<bool> maps{false};
  std::atomic<bool> mapRefused{false};  // mapping fails for want of room, writes succeed

  std::string storageRoot() const override { return real_->storageRoot(); }
  Result<void> createDirectories(const std::string& p) override {
    return real_->createDirectories(p);
  }
  Result<void> writeFileAtomic(const std::string& p, const std::string& b) override {
    return full ? noSpace(p) : real_->writeFileAtomic(p, b);
  }
  Result<void> appendToFile(const std::string& p, const std::string& b) override {
    while (held) std::this_thread::sleep_for(1ms);
    return full ? noSpace(p) : real_->appendToFile(p, b);
  }
  Result<std::unique_ptr<platform::MappedFile>> mapNewFile(const std::string& p,
                                                           std::size_t n) override {
    if (!maps) return FileSystem::mapNewFile(p, n);
    return full || mapRefused ? noSpace(p) : real_->mapNewFile(p, n);
  }
  Result<std::string> readFile(const std::string& p) const override { return real_->readFile(p); }
  Result<std::string> readFileRange(const std::string& p, uint64_t o,
                                    std::size_t n) const override {
    return real_->readFileRange(p, o, n);
  }
  bool exists(const std::string& p) const override { return real_->exists(p); }
  bool isDirectory(const std::string& p) const override { return real_->isDirectory(p); }
  Result<std::vector<std::string>> listDirectory(const std::string& p) const override {
    return real_->listDirectory(p);
  }
  Result<void> remove(const std::string& p) override { return real_->remove(p); }
  Result<void> removeAll(const std::string& p) override { return real_->removeAll(p); }
  Result<uint64_t> fileSize(const std::string& p) const override { return real_->fileSize(p); }

 private:
  static OLError noSpace(const std::string& p) {
    return OLError::LocalError(LocalErrorCodes::StorageError, "Cannot write file " + p,
                               PlatformError{"NSPOSIXErrorDomain", 28, "No space left on device"});
  }
  std::shared_ptr<platform::FileSystem> real_;
};

// What the chunked queue would do with the events handed to it: keep them,
// in order, and answer each (on request). Shared with the intake's threads,
// which may still hand an event on while a test ends.
struct Sink : std::enable_shared_from_this<Sink> {
  std::mutex mutex;
  std::vector<std::string> appended;
  std::vector<EventIntake::Ticket> waiting;
  bool answerAtOnce = true;
  int failOnce = -1;  // the index of an event whose first append fails

  EventIntake::Feed feed() {
    return [this, self = shared_from_this()](IntakeRecord r, EventIntake::Ticket t) {
      std::unique_lock lock(mutex);
      if (!answerAtOnce) {
        waiting.push_back(std::move(t));
        return;
      }
      const bool wanted = t.wanted();
      const bool fails = wanted && static_cast<int>(appended.size()) == failOnce;
      if (fails) failOnce = -1;
      if (wanted && !fails) appended.push_back(r.archive);
      lock.unlock();
      t.done(wanted && !fails);
    };
  }
  std::size_t count() {
    std::lock_guard lock(mutex);
    return appended.size();
  }
};

class EventIntakeTest : public ::testing::Test {
 protected:
  std::shared_ptr<EventIntake> open(const std::string& folder, EventIntake::Limits limits = {}) {
    limits.retrySecs = 0.05;
    return EventIntake::open(files_, platform_.platform().scheduler, platform_.platform().log,
                             folder, limits);
  }
  // Runs `body` once for each way the log is written, with a folder of its own.
  template <class Body>
  void forEachMode(Body body) {
    for (bool maps : {false, true}) {
      SCOPED_TRACE(maps ? "mapped" : "written by the intake's thread");
      files_->maps = maps;
      test::TempDir folder;
      body(folder.path());
    }
  }
  std::vector<std::string> expected(int from, int to) {
    std::vector<std::string> out;
    for (int i = from; i < to; ++i) out.push_back(record(i).archive);
    return out;
  }

  test::TestPlatform platform_;
  std::shared_ptr<FillableFileSystem> files_ =
      std::make_shared<FillableFileSystem>(platform_.platform().files);
};

TEST_F(EventIntakeTest, ARestartReplaysWhatWasNotYetAppended) {
  forEachMode([&](const std::string& folder) {
    auto first = std::make_shared<Sink>();
    first->answerAtOnce = false;
    {
      EventIntake::Limits limits;
      limits.outstanding = 16;
      auto intake = open(folder, limits);
      EXPECT_EQ(intake->mapsLog(), files_->maps.load());
      intake->start(first->feed());
      for (int i = 0; i < 100; ++i) ASSERT_TRUE(intake->accept(record(i)));
      // Refused rather than written with a length that wraps and read back as damage.
      EXPECT_FALSE(intake->accept({std::string(70000, 'f'), "custom", "x"}));
      EXPECT_FALSE(intake->accept({"f", std::string(70000, 'a'), "x"}));
      ASSERT_TRUE(intake->waitUntilPersisted(100, 10s));
      // In the files now: a kill from here on keeps them.
      EXPECT_EQ(EventIntake::pendingRecords(*files_, folder).size(), 100u);
      ASSERT_TRUE(eventually([&] {
        std::lock_guard lock(first->mutex);
        return first->waiting.size() == 16u;
      }));
      // No more than the limit is handed on while none is answered.
      std::this_thread::sleep_for(50ms);
      std::vector<EventIntake::Ticket> answered;
      {
        std::lock_guard lock(first->mutex);
        EXPECT_EQ(first->waiting.size(), 16u);
        answered.swap(first->waiting);
      }
      // These reach their chunks; then the process ends.
      for (auto& t : answered) t.done(true);
      ASSERT_TRUE(eventually([&] { return !intake->isDrained(); }));
      intake->close(1s);
    }
    auto second = std::make_shared<Sink>();
    auto intake = open(folder);
    intake->start(second->feed());
    ASSERT_TRUE(eventually([&] { return intake->isDrained(); }));
    EXPECT_EQ(second->appended, expected(16, 100));
  });
}

TEST_F(EventIntakeTest, AFullDiskLosesNothingAndRefusesOnceMemoryIsFull) {
  // Mapped, the memory is the segment being filled (and the one made before
  // the disk filled up).
  forEachMode([&](const std::string& folder) {
    auto sink = std::make_shared<Sink>();
    EventIntake::Limits limits;
    limits.pendingBytes = 4096;
    limits.segmentBytes = 4096;
    auto intake = open(folder, limits);
    intake->start(sink->feed());
    files_->full = true;
    int accepted = 0;
    auto taken = intake->accept(record(0));
    for (; taken && accepted < 1000; taken = intake->accept(record(accepted))) ++accepted;
    ASSERT_FALSE(taken) << "a full disk and full memory must refuse, not hang";
    EXPECT_TRUE(taken.error().is(LocalErrorCodes::QueueError));
    EXPECT_GT(accepted, 10);
    files_->full = false;
    ASSERT_TRUE(intake->waitUntilPersisted(accepted, 10s));
    ASSERT_TRUE(eventually([&] { return intake->isDrained(); }));
    EXPECT_EQ(sink->appended, expected(0, accepted));
    // The disk takes writes again: so does the intake.
    ASSERT_TRUE(eventually([&] { return intake->accept(record(accepted)).has_value(); }));
  });
}

TEST_F(EventIntakeTest, ProducersRacingAcrossSegmentsLoseNothing) {
  // Small segments: the producers fill one every few dozen events, and race
  // to reserve, copy and roll over to the next.
  constexpr int kProducers = 4, kEach = 2000, kTotal = kProducers * kEach;
  forEachMode([&](const std::string& folder) {
    auto sink = std::make_shared<Sink>();
    sink->failOnce = 10;  // handed again, and still in order
    EventIntake::Limits limits;
    limits.segmentBytes = 4096;
    auto intake = open(folder, limits);
    intake->start(sink->feed());
    std::vector<uint64_t> numbers(kTotal);
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
      producers.emplace_back([&, p] {
        for (int i = p * kEach; i < (p + 1) * kEach; ++i) {
          auto number = intake->accept(record(i));
          ASSERT_TRUE(number);
          numbers[i] = *number;
        }
      });
    }
    for (auto& t : producers) t.join();
    ASSERT_TRUE(eventually([&] { return intake->isDrained() && sink->count() == kTotal; }));
    // Each event once, handed on in the order of the numbers accept() answered.
    std::vector<std::string> byNumber(kTotal);
    for (int i = 0; i < kTotal; ++i) byNumber.at(numbers[i] - 1) = record(i).archive;
    EXPECT_EQ(sink->appended, byNumber);
    // Segments whose events are all in chunks are deleted: the current one
    // stays, and the next one made ahead of need.
    EXPECT_TRUE(eventually([&] {
      auto names = files_->listDirectory(folder);
      return names && std::count_if(names->begin(), names->end(),
                                    [](const std::string& n) { return n.ends_with(".log"); }) <= 2;
    }));
  });
}

TEST_F(EventIntakeTest, AHeldWriterHoldsProducersBackAndLosesNothing) {
  // A kill takes what is accepted and not written: however long the system
  // holds the writer, that stays small. Events are far below a kilobyte.
  struct Case {
    const char* what;
    std::size_t pendingBytes;
    double pendingAgeSecs;
  };
  const std::vector<Case> cases = {
      {"by the age of the oldest unwritten event", 64u << 20, 0.002},
      {"by the unwritten bytes", 4096, 3600},
  };
  constexpr int kEvents = 20000;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::TempDir folder;
    auto sink = std::make_shared<Sink>();
    EventIntake::Limits limits;
    limits.pendingBytes = c.pendingBytes;
    limits.pendingAgeSecs = c.pendingAgeSecs;
    auto intake = open(folder.path(), limits);
    intake->start(sink->feed());
    files_->held = true;
    ASSERT_TRUE(intake->accept(record(0)));
    std::atomic<bool> finished{false};
    std::thread producer([&] {
      for (int i = 1; i <= kEvents; ++i) ASSERT_TRUE(intake->accept(record(i)));
      finished = true;
    });
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(finished) << intake->acceptedCount() << " accepted while the writer was held";
    files_->held = false;
    producer.join();
    ASSERT_TRUE(intake->waitUntilPersisted(kEvents + 1, 10s));
    ASSERT_TRUE(eventually([&] { return intake->isDrained(); }));
    EXPECT_EQ(sink->appended, expected(0, kEvents + 1));
  }
}

TEST_F(EventIntakeTest, AMappingRefusedAtFirstIsTakenLaterAndLosesNothing) {
  // The first mapping fails (no room at that moment): the writer thread
  // writes the log until a later try maps it, while a producer keeps going.
  files_->maps = true;
  files_->mapRefused = true;
  test::TempDir folder;
  auto sink = std::make_shared<Sink>();
  auto intake = open(folder.path());
  EXPECT_FALSE(intake->mapsLog());
  intake->start(sink->feed());
  int sent = 0;
  for (; sent < 200; ++sent) ASSERT_TRUE(intake->accept(record(sent)));
  files_->mapRefused = false;
  std::atomic<bool> mapped{false};
  std::thread producer([&] {
    for (int more = 0; !mapped || more < 200; ++sent) {
      ASSERT_TRUE(intake->accept(record(sent)));
      if (mapped) ++more;
    }
  });
  const bool mapsNow = eventually([&] { return intake->mapsLog(); });
  mapped = true;
  producer.join();
  ASSERT_TRUE(mapsNow) << "never tried to map again";
  ASSERT_TRUE(
      eventually([&] { return intake->isDrained() && sink->count() == std::size_t(sent); }));
  EXPECT_EQ(sink->appended, expected(0, sent));
  EXPECT_EQ(intake->acceptedCount(), uint64_t(sent));
}

TEST_F(EventIntakeTest, OnceClosedTheFolderIsTheHostsAgain) {
  // A host that damages or clears the folder after the facade went: the
  // intake's thread was still reading its mapping of a file truncated under
  // it, a SIGBUS one cycle in a few dozen.
  files_->maps = true;
  for (int cycle = 0; cycle < 200; ++cycle) {
    test::TempDir folder;
    auto sink = std::make_shared<Sink>();
    auto intake = open(folder.path());
    intake->start(sink->feed());
    std::atomic<bool> stop{false};
    std::thread producer([&] {
      for (int i = 0; !stop.load(); ++i) {
        if (!intake->accept(record(i))) break;
      }
    });
    ASSERT_TRUE(eventually([&] { return sink->count() > 0; }));
    intake->close(1s);
    stop = true;
    producer.join();
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      std::filesystem::resize_file(entry.path(), 0);
    }
    intake.reset();
  }
}

}  // namespace
}  // namespace ostrel
