// ostrel-bench: the end-to-end figures, each beside a raw baseline measured in
// the same run. Prints a table and writes the same figures as JSON.
//   ostrel-bench [--events N] [--stream-events N] [--drain-events N] [--steady-secs S]
//                [--micro FILE] [--json FILE]
// The start-up and streaming figures run in child processes of this program so
// that their memory is their own.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "bench_platform.h"
#include "ostrel/diagnostics.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"
#include "ostrel_testing.h"

namespace ostrel::bench {
namespace {

using Clock = std::chrono::steady_clock;
double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

const char* kEventData = R"({"screen":"home","plan":"pro","items":3,"price":9.99,"trial":false})";

std::shared_ptr<Ostrel> startFacade(const std::string& root,
                                    const std::optional<emulator::Info>& service) {
  auto made =
      Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, benchPlatform(root, service));
  if (!made) {
    std::fprintf(stderr, "cannot start: %s\n", made.error().description().c_str());
    std::exit(1);
  }
  return *made;
}

void flushAll(Ostrel& facade) {
  std::promise<void> done;
  facade.flushEvents([&](std::optional<OLError>, std::optional<Json>) { done.set_value(); });
  done.get_future().wait();
}

// The raw rate: create, write and close `n` small files, ten to a folder,
// the way the queue lays out its chunks.
// The raw baseline: files `from` to `from + count` of the queue's layout (ten to
// a folder), each created, written and closed.
void rawFiles(const std::string& root, int from, int count) {
  const std::string payload(600, 'x');
  for (int i = from; i < from + count; ++i) {
    const std::string folder = root + "/Chunks/" + std::to_string(i / 10 + 1);
    if (i % 10 == 0) std::filesystem::create_directories(folder);
    const std::string path = folder + "/" + std::to_string(i);
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || ::write(fd, payload.data(), payload.size()) < 0) std::exit(1);
    ::close(fd);
  }
}

struct PersistRates {
  double raw = 0;
  double persisted = 0;
};

// Events persisted per second against the raw file rate. The two alternate in
// rounds, so that the disk's moods (this one's vary threefold within minutes)
// weigh on both alike.
PersistRates persistRates(const std::string& rawRoot, const std::string& root, int n) {
  auto facade = startFacade(root, std::nullopt);
  auto data = OLSimpleObject::fromJSONString(kEventData);
  constexpr int kRounds = 5;
  double rawSecs = 0, persistSecs = 0;
  for (int round = 0, done = 0; round < kRounds; ++round) {
    const int part = round == kRounds - 1 ? n - done : n / kRounds;
    auto start = Clock::now();
    rawFiles(rawRoot, done, part);
    rawSecs += secondsSince(start);
    start = Clock::now();
    for (int i = 0; i < part; ++i) (void)facade->sendEvent("bench_event", data);
    testing::waitUntilIdle(*facade);
    persistSecs += secondsSince(start);
    done += part;
  }
  return {n / rawSecs, n / persistSecs};
}

// The raw rate of the transport: signed bulk requests of ten events, one after
// the other, through the same client the queue uses.
double rawDeliveryRate(const emulator::Info& service, const std::string& root, int requests) {
  auto facade = startFacade(root, service);
  Json events = Json::array();
  for (int i = 0; i < 10; ++i) {
    events.push_back(Json{{"event_type", "custom event"},
                          {"session_id", "s"},
                          {"creation_date", "2026-11-22T10:00:00.000+0000"},
                          {"user_id", "A_bench"},
                          {"name", "raw"},
                          {"custom_data", *parseJson(kEventData)}});
  }
  const Platform platform = benchPlatform(root + "-raw", service);
  diagnostics::Request request;
  request.secret = "demo-secret";
  request.applicationId = "bench-device";
  request.endpoint = "TrackBulk";
  request.body = events;
  const auto start = Clock::now();
  for (int i = 0; i < requests; ++i) {
    std::promise<void> done;
    auto sent = diagnostics::send(
        platform, request,
        [&](std::optional<OLError>, int64_t, std::optional<Json>) { done.set_value(); });
    if (!sent) return 0;
    done.get_future().wait();
  }
  return requests * 10 / secondsSince(start);
}

double deliveryRate(const emulator::Info& service, const std::string& root, int backlog,
                    emulator::Emulator& emulator) {
  auto facade = startFacade(root, service);
  const auto before = emulator.store().eventCount();
  const auto start = Clock::now();
  while (emulator.store().eventCount() - before < static_cast<std::size_t>(backlog)) {
    const auto seen = emulator.store().eventCount();
    flushAll(*facade);
    if (emulator.store().eventCount() == seen) break;  // nothing more moves
  }
  return (emulator.store().eventCount() - before) / secondsSince(start);
}

// Runs this program again with `args`; answers the JSON line it printed.
Json runChild(const std::vector<std::string>& args) {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) std::exit(1);
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(pipeFds[1], STDOUT_FILENO);
    ::close(pipeFds[0]);
    std::vector<char*> argv;
    static std::string self = "/proc/self/exe";
    argv.push_back(self.data());
    std::vector<std::string> copy = args;
    for (auto& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv("/proc/self/exe", argv.data());
    ::_exit(127);
  }
  ::close(pipeFds[1]);
  std::string out;
  char buffer[4096];
  ssize_t got;
  while ((got = ::read(pipeFds[0], buffer, sizeof buffer)) > 0) out.append(buffer, got);
  ::close(pipeFds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return parseJson(out).value_or(Json::object());
}

// Child: time to a ready facade on `root`, and the memory it then holds.
int childStartup(const std::string& root) {
  const auto start = Clock::now();
  auto facade = startFacade(root, std::nullopt);
  const double ms = secondsSince(start) * 1000;
  // Ready means the host may record at once.
  (void)facade->sendEvent("after_start", nullptr);
  std::printf("%s\n", dumpJson(Json{{"ms", ms}, {"rss_kb", residentKb()}}).c_str());
  std::fflush(stdout);
  std::_Exit(0);
}

// A service that takes connections and never answers: a listening socket that
// nobody accepts from. Answers its port.
int blackhole() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof addr;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(fd, 1024) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length) != 0) {
    std::exit(1);
  }
  return ntohs(addr.sin_port);
}

// Child: a host recording `n` events flat out against a service that never
// answers; the memory it holds meanwhile, and how long the calls took.
int childStream(const std::string& root, const emulator::Info& service, int n) {
  auto facade = startFacade(root, service);
  auto data = OLSimpleObject::fromJSONString(kEventData);
  const auto start = Clock::now();
  int accepted = 0;
  for (int i = 0; i < n; ++i) accepted += facade->sendEvent("stream_event", data) ? 1 : 0;
  const double acceptSecs = secondsSince(start);
  const bool persisted = facade->waitUntilPersisted(std::chrono::seconds(120));
  std::printf("%s\n", dumpJson(Json{{"accept_secs", acceptSecs},
                                    {"accepted", accepted},
                                    {"persisted", persisted},
                                    {"persist_secs", secondsSince(start)},
                                    {"peak_rss_kb", peakResidentKb()}})
                          .c_str());
  std::fflush(stdout);
  std::_Exit(0);
}

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<std::size_t>(p * values.size()))];
}

struct Window {
  double medianMs = 0, p99Ms = 0, offered = 0;
};

// The accept-to-durable window: from a sendEvent return until the intake has
// written the event, with events offered at `rate` per second. With a mapped
// log the event is in the file before the call returns: the window is empty.
Window acceptToDurable(const std::string& root, int rate, int n) {
  auto facade = startFacade(root, std::nullopt);
  const bool mapped = testing::intakeMapsLog(*facade);
  std::vector<Clock::time_point> accepted(n), durable(n);
  const uint64_t base = testing::acceptedCount(*facade);
  uint64_t seen = base;
  testing::setPersistedObserver(*facade, [&](uint64_t persisted) {
    const auto now = Clock::now();
    for (; seen < persisted; ++seen) {
      const uint64_t i = seen - base;
      if (i < static_cast<uint64_t>(n)) durable[i] = now;
    }
  });
  const auto start = Clock::now();
  const auto step = std::chrono::nanoseconds(1000000000LL / rate);
  for (int i = 0; i < n; ++i) {
    const auto due = start + step * i;
    while (Clock::now() < due) {
    }
    (void)facade->sendEvent("durable_event", nullptr);
    accepted[i] = Clock::now();
    if (mapped) durable[i] = accepted[i];
  }
  const double offered = n / secondsSince(start);
  facade->waitUntilPersisted(std::chrono::seconds(60));
  facade->shutdown();
  testing::setPersistedObserver(*facade, nullptr);
  std::vector<double> windows;
  for (int i = 0; i < n; ++i) {
    windows.push_back(
        std::max(0.0, std::chrono::duration<double, std::milli>(durable[i] - accepted[i]).count()));
  }
  return {percentile(windows, 0.5), percentile(windows, 0.99), offered};
}

int chunkCount(const std::string& root) {
  std::error_code ignored;
  int n = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(root + "/EventQueue/Chunks", ignored)) {
    n += entry.is_directory() ? 1 : 0;
  }
  return n;
}

struct LatencyFigures {
  double steadyEvents = 0, steadyBound = 0;  // events/s, and the bound at the chunks sent
  double drainSecs = 0, drainBound = 0;      // seconds, and chunks x round trip
  int chunks = 0;
};

// With the service `latencyMs` away: the events per second delivered while a
// host records faster than that allows, without any explicit flush, and the
// time a backlog of `drainEvents` takes to leave; each against the bound of one
// chunk per round trip.
LatencyFigures latencyFigures(emulator::Emulator& emulator, const std::string& parent,
                              int latencyMs, int drainEvents, double steadySecs) {
  LatencyFigures f;
  const double rtt = latencyMs / 1000.0;
  auto data = OLSimpleObject::fromJSONString(kEventData);
  {
    ScratchDir dir(parent);
    emulator.setLatency(latencyMs);
    auto facade = startFacade(dir.path() + "/Ostrel", emulator.info());
    std::atomic<bool> stop{false};
    std::thread producer([&] {
      const auto begin = Clock::now();
      for (int i = 0; !stop; ++i) {
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(i));  // 1,000 events/s
        (void)facade->sendEvent("steady_event", data);
      }
    });
    const double warmUp = std::min(5.0, steadySecs / 4);
    std::this_thread::sleep_for(std::chrono::duration<double>(warmUp));
    const auto events0 = emulator.store().eventCount();
    const int requests0 = emulator.requestCount("/events/track_bulk");
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(steadySecs - warmUp));
    const double window = secondsSince(t0);
    const double events = static_cast<double>(emulator.store().eventCount() - events0);
    const int requests = emulator.requestCount("/events/track_bulk") - requests0;
    f.steadyEvents = events / window;
    // One chunk per round trip, at the size the chunks had.
    f.steadyBound = requests > 0 ? events / requests / rtt : 0;
    stop = true;
    producer.join();
    facade->shutdown();
  }
  {
    // The backlog, written while no service is reachable.
    ScratchDir dir(parent);
    const std::string root = dir.path() + "/Ostrel";
    {
      emulator.setLatency(0);
      auto facade = startFacade(root, std::nullopt);
      for (int i = 0; i < drainEvents; ++i) (void)facade->sendEvent("backlog_event", data);
      testing::waitUntilIdle(*facade);
      facade->shutdown();
    }
    f.chunks = chunkCount(root);
    emulator.setLatency(latencyMs);
    const auto before = emulator.store().eventCount();
    const auto start = Clock::now();
    auto facade = startFacade(root, emulator.info());
    // No flush is asked for: the session start's append finds the queue ready.
    const double limit = f.chunks * rtt * 5 + 60;
    while (emulator.store().eventCount() - before < static_cast<std::size_t>(drainEvents) &&
           secondsSince(start) < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    f.drainSecs = secondsSince(start);
    f.drainBound = f.chunks * rtt;
    facade->shutdown();
    emulator.setLatency(0);
  }
  return f;
}

long strippedSize(const std::string& library) {
  ScratchDir dir;
  const std::string out = dir.path() + "/stripped.so";
  const std::string command = "strip -o '" + out + "' '" + library + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) return 0;
  std::error_code ignored;
  return static_cast<long>(std::filesystem::file_size(out, ignored));
}

struct Row {
  std::string figure;
  double value;
  std::string unit;
  double baseline;
  std::string baselineName;
  std::string target;
  // When value / baseline is not the figure's ratio (a time against its bound).
  std::optional<double> ratio = std::nullopt;
};

void report(const std::vector<Row>& rows, const Json& micro, const std::string& jsonPath) {
  std::printf("\n%-44s %14s %-8s %14s  %-7s %s\n", "figure", "value", "unit", "baseline", "ratio",
              "target");
  Json summary = Json::object();
  summary["end_to_end"] = Json::array();
  for (const auto& r : rows) {
    const double ratio = r.ratio ? *r.ratio : r.baseline > 0 ? r.value / r.baseline : 0;
    std::printf("%-44s %14.1f %-8s %14.1f  %-7.3f %s  (baseline: %s)\n", r.figure.c_str(), r.value,
                r.unit.c_str(), r.baseline, ratio, r.target.c_str(), r.baselineName.c_str());
    summary["end_to_end"].push_back(Json{{"figure", r.figure},
                                         {"value", r.value},
                                         {"unit", r.unit},
                                         {"baseline", r.baseline},
                                         {"baseline_name", r.baselineName},
                                         {"ratio", ratio},
                                         {"target", r.target}});
  }
  if (micro.is_object() && micro.contains("benchmarks")) {
    double base = 0;
    for (const auto& b : micro["benchmarks"]) {
      if (b["name"] == "BM_Baseline_DumpSmallJson") base = b["cpu_time"].get<double>();
    }
    summary["micro"] = Json::array();
    std::printf("\n%-44s %14s %-8s %10s %10s %10s\n", "micro (per call)", "cpu time", "unit",
                "x baseline", "median_us", "p99_us");
    for (const auto& b : micro["benchmarks"]) {
      const double cpu = b["cpu_time"].get<double>();
      const std::string unit = b["time_unit"];
      double ns = cpu * (unit == "us" ? 1000 : unit == "ms" ? 1e6 : 1);
      const double ratio = base > 0 ? ns / base : 0;
      const double median = b.value("median_us", 0.0);
      const double p99 = b.value("p99_us", 0.0);
      std::printf("%-44s %14.3f %-8s %10.2f %10.2f %10.2f\n", b["name"].get<std::string>().c_str(),
                  cpu, unit.c_str(), ratio, median, p99);
      summary["micro"].push_back(Json{{"name", b["name"]},
                                      {"cpu_time", cpu},
                                      {"time_unit", unit},
                                      {"x_baseline", ratio},
                                      {"median_us", median},
                                      {"p99_us", p99}});
    }
  }
  std::ofstream(jsonPath) << summary.dump(2) << "\n";
  std::printf("\nsummary written to %s\n", jsonPath.c_str());
}

}  // namespace
}  // namespace ostrel::bench

int main(int argc, char** argv) {
  using namespace ostrel::bench;
  using ostrel::Json;
  std::vector<std::string> args(argv + 1, argv + argc);
  auto option = [&](const std::string& name, const std::string& fallback) {
    for (std::size_t i = 0; i + 1 < args.size(); ++i) {
      if (args[i] == name) return args[i + 1];
    }
    return fallback;
  };
  if (!args.empty() && args[0] == "--child-startup") return childStartup(args.at(1));
  if (!args.empty() && args[0] == "--child-stream") {
    ostrel::emulator::Info info;
    info.domain = "ostrel.test";
    info.scheme = "https";
    info.port = std::stoi(args.at(2));
    info.caFile = args.at(3);
    return childStream(args.at(1), info, std::stoi(args.at(4)));
  }
  const int events = std::stoi(option("--events", "100000"));
  const int streamEvents = std::stoi(option("--stream-events", "1000000"));
  const int drainEvents = std::stoi(option("--drain-events", "100000"));
  const double steadySecs = std::stod(option("--steady-secs", "20"));
  const std::string jsonPath = option("--json", OSTREL_BENCH_SUMMARY);
  Json micro;
  if (auto microPath = option("--micro", ""); !microPath.empty()) {
    std::ifstream in(microPath);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    micro = ostrel::parseJson(text).value_or(Json());
  }

  ScratchDir scratch;
  std::vector<Row> rows;
  const auto began = Clock::now();
  auto phase = [&](const std::string& what) {
    std::fprintf(stderr, "[%6.1f s] %s\n", secondsSince(began), what.c_str());
  };
  phase("persisting " + std::to_string(events) + " events, and as many raw files");
  const std::string backlog = scratch.path() + "/backlog/Ostrel";
  const auto persist = persistRates(scratch.path() + "/raw", backlog, events);
  rows.push_back({"(a) events persisted per second", persist.persisted, "events/s", persist.raw,
                  "raw create+write+close files/s, in alternating rounds", ">= 0.5 x baseline"});

  phase("start-up with the backlog");
  Json withBacklog = runChild({"--child-startup", backlog});
  Json empty = runChild({"--child-startup", scratch.path() + "/empty/Ostrel"});
  rows.push_back({"(c) start-up with " + std::to_string(events) + " queued",
                  withBacklog.value("ms", 0.0), "ms", empty.value("ms", 0.0),
                  "start-up with an empty queue", "<= 100 ms"});
  rows.push_back({"(c) resident memory after that start-up",
                  withBacklog.value("rss_kb", 0.0) / 1024, "MB",
                  empty.value("rss_kb", 0.0) / 1024.0, "the same with an empty queue",
                  "independent of backlog"});

  phase("delivering the backlog over HTTPS");
  auto emulator = startEmulator(scratch.path() + "/emulator");
  if (!emulator) return 1;
  const double rawDelivery =
      rawDeliveryRate(emulator->info(), scratch.path() + "/raw-delivery/Ostrel", 1000);
  const double delivered = deliveryRate(emulator->info(), backlog, events, *emulator);
  rows.push_back({"(b) events delivered per second over HTTPS", delivered, "events/s", rawDelivery,
                  "raw signed bulk requests of 10, one at a time", ">= 10,000"});

  // The stream measures memory. Its files go to a memory-backed folder when
  // there is one: on a disk mounted with synchronous discard each deleted file
  // waits for the device, and the phase would take minutes measuring it.
  phase("streaming " + std::to_string(streamEvents) +
        " events flat out to a service that never answers");
  const std::string streamParent = memoryFolder();
  ScratchDir streamScratch = streamParent.empty() ? ScratchDir() : ScratchDir(streamParent);
  Json stream =
      runChild({"--child-stream", streamScratch.path() + "/Ostrel", std::to_string(blackhole()),
                emulator->info().caFile, std::to_string(streamEvents)});
  rows.push_back({"(d) peak resident memory, " + std::to_string(stream.value("accepted", 0)) +
                      " accepted flat out, service never answers",
                  stream.value("peak_rss_kb", 0.0) / 1024, "MB",
                  empty.value("rss_kb", 0.0) / 1024.0,
                  streamParent.empty() ? "an idle facade; files on disk"
                                       : "an idle facade; files in " + streamParent,
                  "<= 32 MB"});
  rows.push_back({"(d) ... the calls took", stream.value("accept_secs", 0.0), "s",
                  stream.value("persist_secs", 0.0), "until all were on disk", "-"});

  // The figures below measure the library and the network, not this disk.
  const std::string fastParent = streamParent.empty() ? scratch.path() : streamParent;
  phase("accept-to-durable window at 100,000 events/s offered");
  {
    ScratchDir dir(fastParent);
    const auto w = acceptToDurable(dir.path() + "/Ostrel", 100000, 200000);
    rows.push_back(
        {"(f) accept-to-durable p99", w.p99Ms, "ms", w.medianMs, "the median", "p99 <= 5 ms"});
    rows.push_back(
        {"(f) ... events offered per second", w.offered, "events/s", 100000, "asked for", "-"});
  }

  for (int latency : {50, 100}) {
    phase("delivery " + std::to_string(latency) + " ms away: steady, then a backlog of " +
          std::to_string(drainEvents));
    const auto f = latencyFigures(*emulator, fastParent, latency, drainEvents, steadySecs);
    const std::string ms = std::to_string(latency) + " ms";
    rows.push_back({"(g) delivered/s, steady, " + ms + " away", f.steadyEvents, "events/s",
                    f.steadyBound, "one chunk per round trip", ">= 0.9 x bound"});
    rows.push_back({"(g) drain of " + std::to_string(drainEvents) + " (" +
                        std::to_string(f.chunks) + " chunks), " + ms + " away",
                    f.drainSecs, "s", f.drainBound, "one chunk per round trip, in s",
                    ">= 0.9 x bound", f.drainSecs > 0 ? f.drainBound / f.drainSecs : 0});
  }

  phase("library size");
  const double library = strippedSize(OSTREL_SHARED_LIBRARY) / 1024.0;
  const double curl = strippedSize(OSTREL_CURL_LIBRARY) / 1024.0;
  rows.push_back({"(e) stripped shared library", library, "KB", curl, "stripped libcurl", "-"});
  report(rows, micro, jsonPath);
  phase("done");
  std::fflush(stdout);
  std::_Exit(0);
}
