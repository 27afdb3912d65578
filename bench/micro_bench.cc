// Micro-benchmarks of the hot path. Each figure is read against
// BM_Baseline_DumpSmallJson, measured in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "archive/keyed_archive.h"
#include "bench_platform.h"
#include "core/ostrel_api_endpoint.h"
#include "events/ol_base_event.h"
#include "facade/ostrel_facade_impl.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"
#include "platform/runtime.h"
#include "queue/ol_queue_manager.h"
#include "transport/ol_connector.h"

namespace ostrel::bench {
namespace {

const char* kEventData = R"({"screen":"home","plan":"pro","items":3,"price":9.99,"trial":false})";

void BM_Baseline_DumpSmallJson(benchmark::State& state) {
  const Json small = *parseJson(kEventData);
  for (auto _ : state) benchmark::DoNotOptimize(dumpJson(small));
}
BENCHMARK(BM_Baseline_DumpSmallJson);

// The caller's cost of sendEvent while the queue's worker writes the previous
// events to disk. Median and p99 come from timing every call.
void BM_SendEvent(benchmark::State& state) {
  ScratchDir dir;
  auto facade = *Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt,
                                      benchPlatform(dir.path() + "/Ostrel", std::nullopt));
  auto data = OLSimpleObject::fromJSONString(kEventData);
  std::vector<double> micros;
  micros.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    if (!facade->sendEvent("bench_event", data)) state.SkipWithError("sendEvent failed");
    micros.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(micros.begin(), micros.end());
  state.counters["median_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[micros.size() * 99 / 100];
  // Outside the timed loop: the worker finishes before the folder goes.
  facade->impl().eventManager->waitUntilIdle();
}
BENCHMARK(BM_SendEvent)->Iterations(20000)->Unit(benchmark::kMicrosecond);

void BM_BuildAndArchiveEvent(benchmark::State& state) {
  ScratchDir dir;
  runtime::install(benchPlatform(dir.path(), std::nullopt));
  auto data = OLSimpleObject::fromJSONString(kEventData);
  for (auto _ : state) {
    auto event = OLCustomEvent::make("bench_event", "session", "A_user", data);
    benchmark::DoNotOptimize(archivedBytes(**event));
  }
}
BENCHMARK(BM_BuildAndArchiveEvent);

// A set on a bag near its size limit, where the size rule has the most to do.
void BM_SimpleObjectSet(benchmark::State& state) {
  auto bag = OLSimpleObject::fromJSONString("{}");
  for (int i = 0; i < 40; ++i)
    (void)bag->setString("key" + std::to_string(i), std::string(100, 'v'));
  int n = 0;
  for (auto _ : state) {
    ++n;
    benchmark::DoNotOptimize(bag->setInt("key" + std::to_string(n % 40), n));
  }
}
BENCHMARK(BM_SimpleObjectSet);

void BM_SignRequest(benchmark::State& state) {
  ScratchDir dir;
  runtime::install(benchPlatform(dir.path(), std::nullopt));
  const std::string body(4000, 'e');
  for (auto _ : state) {
    benchmark::DoNotOptimize(OLConnector::getImeldStr("demo-secret", "/events/track_bulk", "POST",
                                                      body, "", "1795361400"));
  }
}
BENCHMARK(BM_SignRequest);

void BM_ParseBulkReply(benchmark::State& state) {
  const std::string reply = R"({"received":10,"status":"ok"})";
  for (auto _ : state) {
    auto body = OLConnector::decodeBody(reply);
    benchmark::DoNotOptimize(parseUnified(200, body));
  }
}
BENCHMARK(BM_ParseBulkReply);

}  // namespace
}  // namespace ostrel::bench

BENCHMARK_MAIN();
