// Delivery as a host counts it: every call that returned success is an event
// the service eventually receives. A host process returns from main right
// after its calls, or is killed with SIGKILL at random moments while the
// service answers late or refuses; a last run then flushes. Short runs here;
// the campaign of the README sets OSTREL_CRASH_CYCLES=200.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "support/emulator_service.h"

namespace ostrel {
namespace {

using Clock = std::chrono::steady_clock;

struct Host {
  test::TempDir dir;
  test::EmulatorService service;
  std::vector<std::string> env;

  Host() {
    const auto& info = service.emulator().info();
    env = {"OSTREL_STORAGE_DIR=" + dir.path() + "/Ostrel", "OSTREL_SERVICE_DOMAIN=" + info.domain,
           "OSTREL_CONNECT_TO=127.0.0.1:" + std::to_string(info.port),
           "OSTREL_CA_FILE=" + info.caFile};
  }

  // Runs the producer; with `killAt` set, SIGKILLs it then and notes in
  // `killed` when the signal went. Answers its exit status, or minus the
  // signal that ended it.
  int run(const std::vector<std::string>& args, std::optional<Clock::time_point> killAt = {},
          Clock::time_point* killed = nullptr) {
    pid_t pid = ::fork();
    if (pid == 0) {
      for (const auto& e : env) ::putenv(const_cast<char*>(e.c_str()));
      std::vector<char*> argv = {const_cast<char*>(OSTREL_HOST_PRODUCER)};
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    if (killAt) {
      std::this_thread::sleep_until(*killAt);
      // A busy machine wakes this thread late: what counts is when the kill went.
      if (killed) *killed = Clock::now();
      ::kill(pid, SIGKILL);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  // Names of the custom events the service received, with their count.
  std::map<std::string, int> delivered() const {
    std::map<std::string, int> names;
    for (const auto& e : service.events()) {
      if (e["event_type"] == "custom event") ++names[e.value("name", "")];
    }
    return names;
  }
};

TEST(DeliveryCampaign, AReturnFromMainKeepsEveryAcceptedEvent) {
  for (int count : {1, 100, 1000}) {
    Host host;
    const std::string run = std::to_string(count);
    ASSERT_EQ(host.run({"exit", run, run}), 0);
    ASSERT_EQ(host.run({"drain"}), 0);
    const auto names = host.delivered();
    int missing = 0;
    for (int i = 0; i < count; ++i)
      missing += names.count("e" + run + "-" + std::to_string(i)) ? 0 : 1;
    EXPECT_EQ(missing, 0) << "of " << count << " accepted before a return from main";
  }
}

// One killed run as the campaign saw it.
struct KilledRun {
  Clock::time_point started, killed;
  // Progress lines: the last id of a burst, and when its calls had all returned.
  std::vector<std::pair<long, Clock::time_point>> bursts;
};

double msBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

// What the producer's trace says of the intake's writes around a loss: whether
// the last lost event was written, when the writer last wrote before the kill,
// and whether a write was under way (held by the system) when the kill came.
std::string traceVerdict(const std::string& path, long lostId, Clock::time_point killed) {
  auto before = [&](int64_t ns) {
    return msBetween(Clock::time_point{std::chrono::nanoseconds(ns)}, killed);
  };
  std::ifstream in(path);
  std::string line, kind;
  std::optional<double> writtenBefore;
  double underWay = -1;  // a write begun and not returned, or -1
  double lastEndBefore = -1;
  long lastIdBefore = -1;
  int failed = 0, mapped = 0;
  std::string notMapped;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    int64_t begin = 0, end = 0;
    std::size_t bytes = 0;
    long first = -1, last = -1;
    fields >> kind >> begin;
    if (kind == "failed") ++failed;
    if (kind == "map") ++mapped;
    if (kind == "nomap") notMapped = line.substr(line.find(' ', 6) + 1);
    if (kind == "write" && before(begin) >= 0) underWay = before(begin);
    if (kind != "append" || !(fields >> end >> bytes >> first >> last) || before(end) < 0) continue;
    underWay = -1;
    if (first <= lostId && lostId <= last && first >= 0) writtenBefore = before(end);
    if (last >= 0) lastEndBefore = before(end), lastIdBefore = last;
  }
  std::ostringstream out;
  out.precision(1);
  out << std::fixed;
  if (writtenBefore) {
    out << "written to the log " << *writtenBefore << " ms before the kill";
  } else {
    out << "not written; the last write before the kill ended " << lastEndBefore
        << " ms before it (up to id " << lastIdBefore << ")";
    if (underWay >= 0)
      out << "; a write begun " << underWay << " ms before the kill had not returned";
  }
  if (failed) out << "; " << failed << " failed writes";
  if (mapped) out << "; the log was mapped (" << mapped << " segments made): producers wrote it";
  if (!notMapped.empty()) out << "; a segment was not mapped: " << notMapped;
  return out.str();
}

TEST(DeliveryCampaign, AKillAfterTheCallsReturnedLosesNoAcceptedEvent) {
  Host host;
  auto& emulator = host.service.emulator();
  const std::string progress = host.dir.path() + "/progress";
  auto traceOf = [&](const std::string& run) { return host.dir.path() + "/trace-" + run; };
  std::mt19937 rng(7);
  const int cycles =
      std::getenv("OSTREL_CRASH_CYCLES") ? std::atoi(std::getenv("OSTREL_CRASH_CYCLES")) : 4;
  std::map<std::string, KilledRun> runs;
  int failedStarts = 0;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    // The service answers bulk sends two seconds late, or refuses them.
    emulator.clearFaults();
    if (cycle % 2 == 0) {
      emulator.injectFault("TrackBulk", 0, 50, 2000);
    } else {
      emulator.injectFault("TrackBulk", 503, 1000);
    }
    const std::string run = "r" + std::to_string(cycle);
    auto& r = runs[run];
    r.started = Clock::now();
    const auto killAt = r.started + std::chrono::milliseconds(100 + rng() % 600);
    if (host.run({"bursts", run, progress, traceOf(run)}, killAt, &r.killed) != -SIGKILL) {
      ++failedStarts;
    }
  }
  emulator.clearFaults();
  EXPECT_EQ(host.run({"drain"}), 0);

  std::ifstream in(progress);
  std::string tag;  // "<run>-<last id of the burst>"
  int64_t ns = 0;
  while (in >> tag >> ns) {
    const auto dash = tag.rfind('-');
    runs[tag.substr(0, dash)].bursts.emplace_back(std::stol(tag.substr(dash + 1)),
                                                  Clock::time_point{std::chrono::nanoseconds(ns)});
  }
  const auto names = host.delivered();
  long accepted = 0, lost = 0, duplicates = 0;
  for (const auto& [run, r] : runs) {
    // An event counts as accepted when its burst's line was written at least
    // 10 ms before the kill.
    long last = -1, missing = 0, firstLost = -1, lastLost = -1;
    for (const auto& [id, at] : r.bursts) {
      if (at + std::chrono::milliseconds(10) <= r.killed) last = std::max(last, id);
    }
    for (long i = 0; i <= last; ++i) {
      auto it = names.find("e" + run + "-" + std::to_string(i));
      if (it != names.end()) {
        duplicates += it->second - 1;
      } else {
        ++missing;
        lastLost = i;
        if (firstLost < 0) firstLost = i;
      }
    }
    accepted += last + 1;
    lost += missing;
    if (missing == 0) continue;
    Clock::time_point lineAt{};  // when the calls of the last lost event's burst had returned
    for (const auto& [id, at] : r.bursts) {
      if (id >= lastLost) {
        lineAt = at;
        break;
      }
    }
    std::printf(
        "lost in %s: killed %.0f ms after its start, %ld ids between %ld and %ld; the last one's "
        "line came %.1f ms before the kill; %s\n",
        run.c_str(), msBetween(r.started, r.killed), missing, firstLost, lastLost,
        msBetween(lineAt, r.killed), traceVerdict(traceOf(run), lastLost, r.killed).c_str());
  }
  std::printf(
      "delivery campaign: %d kills, %ld events accepted 10 ms or more before their kill, "
      "%ld lost, %ld duplicates, %zu distinct delivered, %d failed starts\n",
      cycles, accepted, lost, duplicates, names.size(), failedStarts);
  EXPECT_GT(accepted, 0);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(failedStarts, 0);
}

}  // namespace
}  // namespace ostrel
