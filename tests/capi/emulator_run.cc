// ostrel_capi_emulator_run [--expect-event NAME]... -- PROGRAM [ARGS...]
//
// Runs a host program (the C example, a Python test) against an in-process
// emulator with the test accounts of EmulatorService: its environment gets
// OSTREL_SERVICE_DOMAIN, OSTREL_CONNECT_TO, OSTREL_CA_FILE, a fresh
// OSTREL_STORAGE_DIR and OSTREL_EMULATOR_URL (the control API). Exits with
// the program's status, or 1 when an expected custom event never arrived.
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "support/emulator_service.h"
#include "support/test_platform.h"

extern char** environ;

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: ostrel_capi_emulator_run [--expect-event NAME]... -- PROGRAM [ARGS...]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::set<std::string> expected;
  int i = 1;
  for (; i < argc && std::string(argv[i]) != "--"; ++i) {
    if (std::string(argv[i]) == "--expect-event" && i + 1 < argc) {
      expected.insert(argv[++i]);
    } else {
      return usage();
    }
  }
  if (i + 1 >= argc) return usage();
  std::vector<char*> command(argv + i + 1, argv + argc);
  command.push_back(nullptr);

  ostrel::test::EmulatorService service;
  ostrel::test::TempDir storage;
  const auto& info = service.emulator().info();
  const std::string connectTo = "127.0.0.1:" + std::to_string(info.port);
  setenv("OSTREL_SERVICE_DOMAIN", info.domain.c_str(), 1);
  setenv("OSTREL_SERVICE_SCHEME", info.scheme.c_str(), 1);
  setenv("OSTREL_CONNECT_TO", connectTo.c_str(), 1);
  setenv("OSTREL_CA_FILE", info.caFile.c_str(), 1);
  setenv("OSTREL_STORAGE_DIR", (storage.path() + "/Ostrel").c_str(), 1);
  setenv("OSTREL_EMULATOR_URL", (info.scheme + "://" + connectTo).c_str(), 1);

  pid_t child = 0;
  if (posix_spawnp(&child, command[0], nullptr, nullptr, command.data(), environ) != 0) {
    std::perror(command[0]);
    return 127;
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) return 1;
  if (!WIFEXITED(status)) {
    std::fprintf(stderr, "%s ended by signal %d\n", command[0], WTERMSIG(status));
    return 1;
  }
  if (WEXITSTATUS(status) != 0) return WEXITSTATUS(status);

  for (const auto& event : service.events()) {
    if (event.is_object() && event.contains("name") && event["name"].is_string()) {
      expected.erase(event["name"].get<std::string>());
    }
  }
  for (const auto& name : expected)
    std::fprintf(stderr, "the emulator never received %s\n", name.c_str());
  return expected.empty() ? 0 : 1;
}
