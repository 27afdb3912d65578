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

  // Runs the producer; with `killAt` set, SIGKILLs it then. Answers its exit
  // status, or minus the signal that ended it.
  int run(const std::vector<std::string>& args, std::optional<Clock::time_point> killAt = {}) {
    std::vector<std::string> all = {OSTREL_HOST_PRODUCER};
    all.insert(all.end(), args.begin(), args.end());
    pid_t pid = ::fork();
    if (pid == 0) {
      for (const auto& e : env) ::putenv(const_cast<char*>(e.c_str()));
      std::vector<char*> argv;
      for (const auto& a : all) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    if (killAt) {
      std::this_thread::sleep_until(*killAt);
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

TEST(DeliveryCampaign, AKillAfterTheCallsReturnedLosesNoAcceptedEvent) {
  Host host;
  auto& emulator = host.service.emulator();
  const std::string progress = host.dir.path() + "/progress";
  std::mt19937 rng(7);
  const int cycles =
      std::getenv("OSTREL_CRASH_CYCLES") ? std::atoi(std::getenv("OSTREL_CRASH_CYCLES")) : 4;
  // For each run: when it was killed.
  std::map<std::string, Clock::time_point> killedAt;
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
    const auto killAt = Clock::now() + std::chrono::milliseconds(100 + rng() % 600);
    killedAt[run] = killAt;
    if (host.run({"bursts", run, progress}, killAt) != -SIGKILL) ++failedStarts;
  }
  emulator.clearFaults();
  EXPECT_EQ(host.run({"drain"}), 0);

  // An event counts as accepted when its burst's line was written at least
  // 10 ms before the kill.
  std::map<std::string, long> lastAccepted;
  std::ifstream in(progress);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id;
    int64_t ns = 0;
    fields >> id >> ns;
    const auto dash = id.rfind('-');
    const std::string run = id.substr(0, dash);
    const long last = std::stol(id.substr(dash + 1));
    const Clock::time_point at{std::chrono::nanoseconds(ns)};
    if (at + std::chrono::milliseconds(10) <= killedAt[run]) {
      lastAccepted[run] = std::max(lastAccepted[run], last);
    }
  }
  const auto names = host.delivered();
  long accepted = 0, lost = 0, duplicates = 0;
  for (const auto& [run, last] : lastAccepted) {
    for (long i = 0; i <= last; ++i) {
      ++accepted;
      auto it = names.find("e" + run + "-" + std::to_string(i));
      if (it == names.end()) {
        ++lost;
      } else {
        duplicates += it->second - 1;
      }
    }
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
