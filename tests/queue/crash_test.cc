// Crash durability: a producer process is killed with SIGKILL at random
// moments, again and again; after the restarts every append that completed
// has reached the emulator, whole. A short run here; the campaign of the
// README sets OSTREL_CRASH_CYCLES=200.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "support/emulator_service.h"

namespace ostrel {
namespace {

int runProducer(const std::vector<std::string>& args, const std::vector<std::string>& env,
                int killAfterMs) {
  pid_t pid = ::fork();
  if (pid == 0) {
    for (const auto& e : env) ::putenv(const_cast<char*>(e.c_str()));
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  if (killAfterMs > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(killAfterMs));
    ::kill(pid, SIGKILL);
  }
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(CrashTest, EveryCompletedAppendIsDeliveredAfterKills) {
  test::TempDir dir;
  test::EmulatorService service;
  const auto& info = service.emulator().info();
  const std::vector<std::string> env = {
      "OSTREL_STORAGE_DIR=" + dir.path() + "/Ostrel",
      "OSTREL_SERVICE_DOMAIN=" + info.domain,
      "OSTREL_CONNECT_TO=127.0.0.1:" + std::to_string(info.port),
      "OSTREL_CA_FILE=" + info.caFile,
  };
  const std::string progress = dir.path() + "/progress";
  std::mt19937 rng(42);
  const int cycles =
      std::getenv("OSTREL_CRASH_CYCLES") ? std::atoi(std::getenv("OSTREL_CRASH_CYCLES")) : 6;
  // A producer that ends before its kill did not start (or crashed on its own).
  int failedStarts = 0;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    int killAfter = 150 + static_cast<int>(rng() % 400);
    if (runProducer({OSTREL_CRASH_PRODUCER, std::to_string(cycle), progress}, env, killAfter) !=
        -SIGKILL) {
      ++failedStarts;
    }
  }
  EXPECT_EQ(failedStarts, 0);
  EXPECT_EQ(runProducer({OSTREL_CRASH_PRODUCER, "drain", progress, "--drain"}, env, 0), 0);

  std::set<std::string> delivered;
  std::size_t received = 0, corrupt = 0;
  for (const auto& e : service.events()) {
    if (e["event_type"] != "custom event") continue;
    ++received;
    const std::string name = e.value("name", "");
    const bool whole = name.size() > 1 && name[0] == 'c' && e.contains("session_id") &&
                       e.contains("user_id") && e.contains("creation_date");
    if (!whole) {
      ++corrupt;
      continue;
    }
    delivered.insert(name.substr(1));
  }
  std::ifstream in(progress);
  std::string line;
  std::size_t completed = 0, lost = 0;
  while (std::getline(in, line)) {
    ++completed;
    if (!delivered.count(line)) ++lost;
  }
  std::printf(
      "crash campaign: %d kills, %zu completed appends, %zu delivered events, %zu duplicates, %zu "
      "lost, %zu corrupt, %d failed starts\n",
      cycles, completed, received, received - corrupt - delivered.size(), lost, corrupt,
      failedStarts);
  EXPECT_GT(completed, 0u);
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(corrupt, 0u);
}

}  // namespace
}  // namespace ostrel
