// Crash durability: a producer process is killed with SIGKILL at random
// moments, again and again; after the restarts every append that completed
// has reached the emulator.
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
  for (int cycle = 0; cycle < cycles; ++cycle) {
    int killAfter = 150 + static_cast<int>(rng() % 400);
    EXPECT_EQ(runProducer({OSTREL_CRASH_PRODUCER, std::to_string(cycle), progress}, env, killAfter),
              -SIGKILL);
  }
  EXPECT_EQ(runProducer({OSTREL_CRASH_PRODUCER, "drain", progress, "--drain"}, env, 0), 0);

  std::set<std::string> delivered;
  std::size_t received = 0;
  for (const auto& e : service.events()) {
    if (e["event_type"] != "custom event") continue;
    ++received;
    delivered.insert(e["name"].get<std::string>().substr(1));
  }
  std::ifstream in(progress);
  std::string line;
  std::size_t completed = 0, lost = 0;
  while (std::getline(in, line)) {
    ++completed;
    if (!delivered.count(line)) ++lost;
  }
  std::printf(
      "crash test: %d kills, %zu completed appends, %zu delivered events, %zu duplicates, %zu "
      "lost\n",
      cycles, completed, received, received - delivered.size(), lost);
  EXPECT_GT(completed, 0u);
  EXPECT_EQ(lost, 0u);
}

}  // namespace
}  // namespace ostrel
