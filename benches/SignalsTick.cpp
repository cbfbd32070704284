// What one sampling turn costs: the reading of the desktop alone, and the whole turn with its row on the disk. Needs a display (DISPLAY);
// the time that counts is this process's own CPU time.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "agents/Signals/SignalsSampler.h"

namespace {

using namespace halvo;

std::string folder() {
  std::string name = (std::filesystem::temp_directory_path() / "halvo-bench-XXXXXX").string();
  return ::mkdtemp(name.data());
}

void readDesktop(benchmark::State& state) {
  const auto clock = Clock::system();
  LinuxDesktop desktop(LinuxDesktop::Options::from(processEnvironment(), clock.nowMs, {}));
  if (!desktop.sample().windows) return state.SkipWithError("no display");
  std::size_t windows = 0;
  for (auto _ : state) windows = desktop.sample().windows.value_or(std::vector<WindowInfo>{}).size();
  state.counters["windows"] = static_cast<double>(windows);
}
BENCHMARK(readDesktop)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

void wholeTurn(benchmark::State& state) {
  const auto clock = Clock::system();
  LinuxDesktop desktop(LinuxDesktop::Options::from(processEnvironment(), clock.nowMs, {}));
  if (!desktop.sample().windows) return state.SkipWithError("no display");
  const std::filesystem::path root = folder();
  SignalsSampler sampler({.probes = desktop,
                          .nowPlaying = desktop.nowPlaying(),
                          .clock = clock,
                          .root = [&] { return SignalsSampler::Root{.database = root / "signals.sqlite"}; },
                          .declaredTask = [] { return std::optional<std::string>("write the essay"); }});
  std::int64_t nowMs = clock.nowMs();
  for (auto _ : state)
    if (!sampler.turn(nowMs += SignalsSampler::periodMs)) return state.SkipWithError("no row was written");
  std::filesystem::remove_all(root);
}
BENCHMARK(wholeTurn)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
