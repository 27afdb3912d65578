// A host application for the delivery campaigns, written against the public
// headers only. The deployment and the storage folder come from the OSTREL_*
// variables.
//   ostrel_host_producer exit RUN N          N events "<RUN>-<i>", then a return from main
//   ostrel_host_producer bursts RUN PROGRESS bursts of events until killed; after each
//                                            burst one line "<RUN>-<last> <monotonic ns>"
//   ostrel_host_producer drain               flushes; exit status 0 once all was delivered
//   ostrel_host_producer idle SECONDS        starts, then waits without asking for anything
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <random>
#include <string>
#include <thread>

#include "ostrel/ostrel.h"

namespace {

class Quiet : public ostrel::platform::LogSink {
  void write(std::string_view) override {}
};

std::shared_ptr<ostrel::Ostrel> start() {
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) {
    std::fprintf(stderr, "environment: %s\n", platform.error().description().c_str());
    std::exit(2);
  }
  platform->log = std::make_shared<Quiet>();
  auto facade =
      ostrel::Ostrel::getSharedInstanceWithConfig("demo-secret", nullptr, std::nullopt, *platform);
  if (!facade) {
    std::fprintf(stderr, "start: %s\n", facade.error().description().c_str());
    std::exit(1);
  }
  return *facade;
}

int64_t monotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "exit" && argc == 4) {
    auto facade = start();
    const std::string run = argv[2];
    const long count = std::atol(argv[3]);
    for (long i = 0; i < count; ++i) {
      if (!facade->sendEvent("e" + run + "-" + std::to_string(i))) return 3;
    }
    return 0;  // nothing waits: the library must keep what it accepted
  }
  if (mode == "bursts" && argc == 4) {
    auto facade = start();
    const std::string run = argv[2];
    int progress = ::open(argv[3], O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (progress < 0) return 2;
    std::mt19937 rng(std::random_device{}());
    long next = 0;
    for (;;) {
      const long burst = 1 + static_cast<long>(rng() % 2000);
      for (long i = 0; i < burst; ++i, ++next) {
        if (!facade->sendEvent("e" + run + "-" + std::to_string(next))) return 3;
      }
      const std::string line =
          run + "-" + std::to_string(next - 1) + " " + std::to_string(monotonicNs()) + "\n";
      if (::write(progress, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        return 2;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 40));
    }
  }
  if (mode == "idle" && argc == 3) {
    auto facade = start();
    std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(argv[2])));
    return 0;
  }
  if (mode == "drain" && argc == 2) {
    auto facade = start();
    std::promise<bool> done;
    facade->flushEvents(
        [&](std::optional<ostrel::OLError> e, std::optional<ostrel::Json>) { done.set_value(!e); });
    return done.get_future().get() ? 0 : 1;
  }
  std::fprintf(stderr, "usage: see the top of host_producer.cc\n");
  return 2;
}
