// ostrel-emulator [--port N] [--http] [--domain D] [--data DIR] [--app ID:SECRET ...]
//                 [--operator-bounces K] [--operator-page FILE] [--autologin-lifetime SECS]
//                 [--mandatory-confirm] [--latency MS]
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "emulator/emulator.h"

namespace {
volatile std::sig_atomic_t g_stop = 0;
void onSignal(int) {
  g_stop = 1;
}

int usage(const std::string& problem) {
  std::fprintf(stderr,
               "ostrel-emulator: %s\nusage: ostrel-emulator [--port N] [--http] [--domain D] "
               "[--data DIR] [--app ID:SECRET ...] [--operator-bounces K] [--operator-page FILE] "
               "[--autologin-lifetime SECS] [--mandatory-confirm] [--latency MS]\n",
               problem.c_str());
  return 2;
}
}  // namespace

int main(int argc, char** argv) {
  ostrel::emulator::Options options;
  bool appsGiven = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    if (a == "--http") {
      options.https = false;
    } else if (a == "--mandatory-confirm") {
      options.mandatoryConfirm = true;
    } else if (a == "--port" || a == "--domain" || a == "--data" || a == "--app" ||
               a == "--operator-bounces" || a == "--operator-page" || a == "--autologin-lifetime" ||
               a == "--latency") {
      const char* v = value();
      if (!v) return usage("missing value for " + a);
      if (a == "--port") options.port = std::atoi(v);
      if (a == "--domain") options.domain = v;
      if (a == "--data") options.dataDir = v;
      if (a == "--operator-bounces") options.operatorBounces = std::atoi(v);
      if (a == "--autologin-lifetime") options.autologinLifetime = std::atof(v);
      if (a == "--latency") options.latencyMs = std::atoi(v);
      if (a == "--operator-page") {
        std::ifstream in(v, std::ios::binary);
        if (!in) return usage(std::string("cannot read ") + v);
        std::ostringstream page;
        page << in.rdbuf();
        options.operatorPage = page.str();
      }
      if (a == "--app") {
        std::string app = v;
        auto colon = app.find(':');
        if (colon == std::string::npos) return usage("--app needs ID:SECRET");
        if (!appsGiven) options.apps.clear();
        appsGiven = true;
        options.apps.emplace_back(app.substr(0, colon), app.substr(colon + 1));
      }
    } else {
      return usage("unknown option " + a);
    }
  }
  options.log = [](const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  };
  ostrel::emulator::Emulator emulator(options);
  auto started = emulator.start();
  if (!started) {
    std::fprintf(stderr, "ostrel-emulator: %s\n", started.error().description().c_str());
    return 1;
  }
  std::printf("%s\n", ostrel::dumpJson(started->toJson()).c_str());
  std::fflush(stdout);
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  while (!g_stop) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  emulator.stop();
  return 0;
}
