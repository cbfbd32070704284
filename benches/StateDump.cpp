// What `AmbitudeApp --dump` costs on a year of logs, in this process and as a program. Budget: under 50 ms.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "AmbitudeAppKit/Entry/StateDump.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace {

using namespace halvo;
namespace fs = std::filesystem;

/// A data root with 200,000 judgments and 100,000 events. The declaration stands as many events before the end as told.
class Year {
 public:
  explicit Year(int eventsBehindDeclaration) {
    std::string name = (fs::temp_directory_path() / "halvo-bench-XXXXXX").string();
    root_ = ::mkdtemp(name.data());
    fs::create_directory(root_ / "io-layer");
    std::ofstream ticks(root_ / "checker-log.jsonl"), events(root_ / "io-layer/events.jsonl");
    for (int n = 0; n < 200'000; ++n)
      ticks << fmt::format(
          "{{\"at\":\"2026-03-04T{:02}:{:02}:00.000-05:00\",\"frontmost_app\":\"firefox\",\"reason\":\"they are watching a documentary "
          "about row {} rather than "
          "writing the essay\",\"state\":\"NOT_ALIGNED\"}}\n",
          n / 60 % 24, n % 60, n);
    for (int n = 0; n < 100'000; ++n)
      events << fmt::format(R"({{"detail":{{"role":"user","text":"row {}"}},"kind":"event","source":"coach-core","ts_ms":{},"type":"{}"}})",
                            n, 1'700'000'000'000 + n, n == 99'999 - eventsBehindDeclaration ? "task_cleared" : "app_chat_message")
             << '\n';
    ::setenv("AMBITCAP_DATA_ROOT", root_.c_str(), 1);
  }
  ~Year() { fs::remove_all(root_); }

 private:
  fs::path root_;
};

void dump(benchmark::State& state) {
  const Year year(static_cast<int>(state.range(0)));
  std::size_t bytes = 0;
  for (auto _ : state) StateDump::run([&](const std::string& line) { bytes += line.size(); }, Calendar::local());
  benchmark::DoNotOptimize(bytes);
}
BENCHMARK(dump)->Arg(10)->Arg(99'999)->Unit(benchmark::kMillisecond);

void dumpAsAProgram(benchmark::State& state) {
  const Year year(static_cast<int>(state.range(0)));
  const auto program = fs::read_symlink("/proc/self/exe").parent_path() / "AmbitudeApp";
  for (auto _ : state)
    if (const auto ran = Spawn::capture(program, {"--dump"}, "", 10); !ran || ran->standardOutput.find("NOT_ALIGNED") == std::string::npos)
      return state.SkipWithError("no dump");
  state.counters["budget_ms"] = 50;
}
BENCHMARK(dumpAsAProgram)->Arg(10)->Arg(99'999)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
