#pragma once
// Platform pieces for tests: a controllable clock, a log sink that captures the
// console lines, and a private temporary storage root per test.
#include <atomic>
#include <string>
#include <vector>

#include "ostrel/platform.h"
#include "platform/platform_ref.h"
#include "support/recorder.h"
#include "testing/scratch_platform.h"

namespace ostrel::test {

class FakeClock : public platform::Clock {
 public:
  explicit FakeClock(double start = 1700000000.0) : now_(start) {}
  double now() const override { return now_.load(); }
  void set(double t) { now_.store(t); }
  void advance(double secs) { now_.store(now_.load() + secs); }

 private:
  std::atomic<double> now_;
};

// A local time zone: standard time, plus an hour of summer time between two
// instants.
class ZoneClock : public platform::Clock {
 public:
  explicit ZoneClock(long standardSecs, double summerFrom = 0, double summerUntil = 0)
      : standard_(standardSecs), from_(summerFrom), until_(summerUntil) {}
  double now() const override { return 0; }
  long utcOffsetSecs(double t) const override {
    return standard_ + (t >= from_ && t < until_ ? 3600 : 0);
  }

 private:
  long standard_;
  double from_, until_;
};

class CapturingLogSink : public platform::LogSink {
 public:
  void write(std::string_view line) override { lines_.add(std::string(line)); }
  std::vector<std::string> lines() const { return lines_.values(); }
  bool contains(std::string_view fragment) const;
  void clear() { lines_.clear(); }

 private:
  Recorder<std::string> lines_;
};

// The whole content of a file ("" when it cannot be read).
std::string readWholeFile(const std::string& path);

using TempDir = testing::ScratchDir;

// The platform of one test: the real defaults, except a storage root in a
// temporary folder, a fake clock and a capturing log sink.
class TestPlatform {
 public:
  TestPlatform();
  ~TestPlatform();
  FakeClock& clock() { return *clock_; }
  CapturingLogSink& log() { return *log_; }
  const std::string& root() const { return root_; }
  const Platform& platform() const { return *platform_; }
  // What components built in the test are handed.
  const PlatformRef& ref() const { return platform_; }

 private:
  TempDir dir_;
  std::string root_;
  std::shared_ptr<FakeClock> clock_;
  std::shared_ptr<CapturingLogSink> log_;
  PlatformRef platform_;
};

}  // namespace ostrel::test
