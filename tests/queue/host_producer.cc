// A host application for the delivery campaigns, written against the public
// headers only. The deployment and the storage folder come from the OSTREL_*
// variables.
//   ostrel_host_producer exit RUN N          N events "<RUN>-<i>", then a return from main
//   ostrel_host_producer bursts RUN PROGRESS TRACE
//                                            bursts of events until killed; after each
//                                            burst one line "<RUN>-<last> <monotonic ns>";
//                                            in TRACE, the intake's file work (see Tracer)
//   ostrel_host_producer drain               flushes; exit status 0 once all was delivered
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <thread>

#include "ostrel/ostrel.h"

namespace {

class Quiet : public ostrel::platform::LogSink {
  void write(std::string_view) override {}
};

std::shared_ptr<ostrel::Ostrel> start(std::function<void(ostrel::Platform&)> adjust = {}) {
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) {
    std::fprintf(stderr, "environment: %s\n", platform.error().description().c_str());
    std::exit(2);
  }
  platform->log = std::make_shared<Quiet>();
  if (adjust) adjust(*platform);
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

// The host's own file system around the library's, noting what the event
// intake does with its log, one line per call, so that a campaign can tell an
// event never written from one written and lost later:
//   write <begin ns> <bytes>   then, once it returned,
//   append <begin ns> <end ns> <bytes> <first id> <last id>  (ids of this run's events, or -1)
//   map <ns> <file>          a segment made and mapped (producers write it themselves)
//   nomap <ns> <file> [error] a segment the file system did not map
// Every other call passes straight through: the campaign reads only these.
class Tracer final : public ostrel::platform::FileSystem {
 public:
  Tracer(std::shared_ptr<ostrel::platform::FileSystem> inner, int fd, std::string run)
      : inner_(std::move(inner)), fd_(fd), marker_("e" + run + "-") {}

  std::string storageRoot() const override { return inner_->storageRoot(); }
  ostrel::Result<void> createDirectories(const std::string& path) override {
    return inner_->createDirectories(path);
  }
  ostrel::Result<void> writeFileAtomic(const std::string& path, const std::string& bytes) override {
    return inner_->writeFileAtomic(path, bytes);
  }
  ostrel::Result<void> writeNewFile(const std::string& path, const std::string& bytes) override {
    return inner_->writeNewFile(path, bytes);
  }
  ostrel::Result<void> appendToFile(const std::string& path, const std::string& bytes) override {
    const int64_t begin = monotonicNs();
    if (intake(path)) note("write " + std::to_string(begin) + " " + std::to_string(bytes.size()));
    auto done = inner_->appendToFile(path, bytes);
    if (intake(path)) {
      note(std::string(done ? "append " : "failed ") + std::to_string(begin) + " " +
           std::to_string(monotonicNs()) + " " + std::to_string(bytes.size()) + " " +
           std::to_string(idAt(bytes, bytes.find(marker_))) + " " +
           std::to_string(idAt(bytes, bytes.rfind(marker_))));
    }
    return done;
  }
  ostrel::Result<std::unique_ptr<ostrel::platform::MappedFile>> mapNewFile(
      const std::string& path, std::size_t size) override {
    auto mapped = inner_->mapNewFile(path, size);
    if (intake(path)) {
      note((mapped && *mapped ? "map " : "nomap ") + std::to_string(monotonicNs()) + " " +
           tail(path) + (mapped ? "" : " " + mapped.error().description()));
    }
    return mapped;
  }
  ostrel::Result<std::string> readFile(const std::string& path) const override {
    return inner_->readFile(path);
  }
  ostrel::Result<std::string> readFileRange(const std::string& path, uint64_t offset,
                                            std::size_t length) const override {
    return inner_->readFileRange(path, offset, length);
  }
  bool exists(const std::string& path) const override { return inner_->exists(path); }
  bool isDirectory(const std::string& path) const override { return inner_->isDirectory(path); }
  ostrel::Result<std::vector<std::string>> listDirectory(const std::string& path) const override {
    return inner_->listDirectory(path);
  }
  ostrel::Result<void> remove(const std::string& path) override { return inner_->remove(path); }
  ostrel::Result<void> removeAll(const std::string& path) override {
    return inner_->removeAll(path);
  }
  ostrel::Result<uint64_t> fileSize(const std::string& path) const override {
    return inner_->fileSize(path);
  }
  ostrel::Result<void> rename(const std::string& from, const std::string& to) override {
    return inner_->rename(from, to);
  }

 private:
  static bool intake(const std::string& path) {
    return path.find("/EventIntake/") != std::string::npos;
  }
  static std::string tail(const std::string& path) { return path.substr(path.rfind('/') + 1); }
  long idAt(const std::string& bytes, std::size_t at) const {
    if (at == std::string::npos) return -1;
    long id = 0;
    for (at += marker_.size(); at < bytes.size() && bytes[at] >= '0' && bytes[at] <= '9'; ++at)
      id = id * 10 + (bytes[at] - '0');
    return id;
  }
  void note(std::string line) {
    line += '\n';
    (void)!::write(fd_, line.data(), line.size());
  }

  std::shared_ptr<ostrel::platform::FileSystem> inner_;
  const int fd_;
  const std::string marker_;
};

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
  if (mode == "bursts" && argc == 5) {
    const std::string run = argv[2];
    auto facade = start([&](ostrel::Platform& platform) {
      int trace = ::open(argv[4], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
      if (trace < 0) std::exit(2);
      platform.files = std::make_shared<Tracer>(platform.completed().files, trace, run);
    });
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
