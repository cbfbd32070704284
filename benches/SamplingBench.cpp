// Drawing a review's batch from a million judgments: it is to take less than a second.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace {

using namespace halvo;
using namespace halvo::RampSampleSelector;

constexpr std::int64_t now = 1'795'600'000'000;
constexpr int judgments = 1'000'000, decisions = 20'000;

/// Seventy days without a pause, one judgment every six seconds.
struct Log {
  std::vector<ClassifierTick> ticks = {};
  std::vector<GateDecisionRecord> gate = {};
  Log() {
    const char* const states[] = {"ON_TASK", "ON_TASK", "ON_TASK", "NOT_ALIGNED", "IDLE", "NO_TASK", "ABSTAINED"};
    for (std::int64_t i = judgments; i-- > 0;)
      ticks.push_back({.at = ISO8601::utcMillis(now - i * 6'000), .state = states[i / 20 % std::size(states)], .confidence = static_cast<double>(i % 100) / 100});
    for (std::int64_t i = decisions; i-- > 0;) gate.push_back({.atMs = now - i * 300'500, .decision = i % 7 ? "no_check_in" : "check_in"});
  }
};

void draw(benchmark::State& state, SamplingMode mode) {
  static const Log log;
  std::uint64_t seed = 0;
  std::int64_t asked = 0;
  for (auto _ : state) {
    const auto samples = selectBatch(mode, {.ticks = log.ticks, .decisions = log.gate, .asOfMs = now, .limit = 20, .seed = ++seed,
                                            .maxAgeMs = now, .isRenderable = [&](std::int64_t) { return ++asked, true; }});
    if (samples.size() != 20) std::abort();
  }
  state.counters["asked"] = static_cast<double>(asked) / static_cast<double>(state.iterations());
}
void drawVerdictBlind(benchmark::State& state) { draw(state, SamplingMode::verdictBlind); }
void drawInteresting(benchmark::State& state) { draw(state, SamplingMode::interestingMoments); }

}  // namespace

BENCHMARK(drawVerdictBlind)->Unit(benchmark::kMillisecond);
BENCHMARK(drawInteresting)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
