// Micro-benchmarks of the hot path. Each figure is read against
// BM_Baseline_DumpSmallJson, measured in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "bench_platform.h"
#include "ostrel/diagnostics.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"
#include "ostrel_testing.h"

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
  testing::waitUntilIdle(*facade);
}
BENCHMARK(BM_SendEvent)->Iterations(20000)->Unit(benchmark::kMicrosecond);

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

// The Authorization header of a bulk request: an HMAC over the whole body.
void BM_SignRequest(benchmark::State& state) {
  const std::string body(4000, 'e');
  for (auto _ : state) {
    benchmark::DoNotOptimize(diagnostics::authorizationHeader(
        "demo-secret", "bench-device", std::nullopt, "https://api.ostrel.io/events/track_bulk",
        "1795361400", body));
  }
}
BENCHMARK(BM_SignRequest);

}  // namespace
}  // namespace ostrel::bench

BENCHMARK_MAIN();
