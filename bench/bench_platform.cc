#include "bench_platform.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace ostrel::bench {
namespace {

class RefusingHttpClient : public platform::HttpClient {
 public:
  void send(platform::HttpRequest request, platform::HttpCompletion completion) override {
    platform::HttpResponse response;
    response.status = 503;
    response.body = R"({"error":{"code":"UNAVAILABLE","message":"bench","extra":{}}})";
    response.finalUrl = request.url;
    completion(std::nullopt, std::move(response));
  }
  // It answers on the caller's thread anyway.
  void dispatch(std::function<void()> work) override { work(); }
};

long statusField(const char* name) {
  std::ifstream in("/proc/self/status");
  std::string line;
  const std::string key = std::string(name) + ":";
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) == 0) return std::strtol(line.c_str() + key.size(), nullptr, 10);
  }
  return 0;
}

}  // namespace

std::string memoryFolder() {
  const std::string shm = "/dev/shm";
  return ::access(shm.c_str(), W_OK) == 0 && std::filesystem::is_directory(shm) ? shm : "";
}

std::unique_ptr<emulator::Emulator> startEmulator(const std::string& dataDir) {
  emulator::Options options;
  options.dataDir = dataDir;
  options.keepAliveSecs = 5;
  // The service's own database would grow to gigabytes over the stream and
  // measure its disk, not the library.
  options.keepEvents = false;
  auto e = std::make_unique<emulator::Emulator>(options);
  if (!e->start()) return nullptr;
  return e;
}

Platform benchPlatform(const std::string& storageRoot,
                       const std::optional<emulator::Info>& service) {
  auto fromEnvironment = Platform::fromEnvironment();
  if (!fromEnvironment) {
    std::fprintf(stderr, "%s\n", fromEnvironment.error().description().c_str());
    std::exit(2);
  }
  Platform p = *fromEnvironment;
  if (service) {
    p.deployment.domain = service->domain;
    p.deployment.scheme = service->scheme;
    p.network = {"127.0.0.1:" + std::to_string(service->port), service->caFile};
  } else {
    p.http = std::make_shared<RefusingHttpClient>();
  }
  return testing::scratchPlatform(p, storageRoot);
}

long residentKb() {
  return statusField("VmRSS");
}
long peakResidentKb() {
  return statusField("VmHWM");
}

}  // namespace ostrel::bench
