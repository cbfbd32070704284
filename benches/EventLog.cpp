// The append and the followers of the logs: what a poll reads at ten thousand rows and at a million, how fast a first read is beside simdjson
// on the same lines, what an appended row costs beside the bare calls. The reads are the kernel's own count for this process.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <simdjson.h>
#include <unistd.h>

#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace {

using namespace halvo;
namespace fs = std::filesystem;

struct Folder {
  fs::path path;
  Folder() {
    std::string name = (fs::temp_directory_path() / "halvo-bench-XXXXXX").string();
    path = ::mkdtemp(name.data());
  }
  ~Folder() { fs::remove_all(path); }
};

std::string eventRow(std::int64_t n) {
  static const char* const types[] = {"app_chat_message", "coach_checkin", "coach_decision", "task_declared", "ui_opened"};
  return fmt::format(
      R"({{"detail":{{"_producer":{{"pid":4242,"process":"AmbitudeCoach","version":"0.1.0"}},"role":"user","text":"row {}: back to the second paragraph, the one about the harvest"}},"kind":"event","source":"coach-core","ts_ms":{},"type":"{}"}})",
      n, 1'700'000'000'000 + n * 1000, types[n % 5]);
}

std::string tickRow(std::int64_t n) {
  return ClassifierTick{.at = Calendar::utc().isoMillis(1'700'000'000'000 + n * 20'000),
                        .state = n % 3 ? "ON_TASK" : "NOT_ALIGNED",
                        .frontmostApp = "firefox",
                        .frontmostWindowTitle = "The Fall of \"Rome\" – part " + std::to_string(n),
                        .browserTitle = "The Fall of \"Rome\" – part " + std::to_string(n),
                        .reason = "they are watching a documentary rather than writing the essay they declared",
                        .confidence = 0.875,
                        .declaredTask = "Task: write the essay\nDeclared: 2026-03-04 2:00pm ET\n",
                        .model = "gemma4:12b-it-qat",
                        .screenshotAtMs = 1'700'000'000'000 + n * 20'000}
      .encode();
}

template <class F>
fs::path writeLog(const Folder& folder, std::int64_t rows, F&& rowOf) {
  const auto file = folder.path / "log.jsonl";
  std::ofstream out(file, std::ios::binary);
  for (std::int64_t n = 0; n < rows; ++n) out << rowOf(n) << '\n';
  return file;
}

/// Reads and the bytes they brought, of this process so far.
struct Reads {
  double calls = 0, bytes = 0;
  static Reads now() {
    std::ifstream io("/proc/self/io");
    Reads reads;
    std::string key;
    for (double value; io >> key >> value;) (key == "rchar:" ? reads.bytes : key == "syscr:" ? reads.calls : value) = value;
    return reads;
  }
};

/// Counts over `polls` calls of `poll`, less what the counting itself reads.
template <class F>
void countReads(benchmark::State& state, F&& poll) {
  constexpr int polls = 100;
  const auto first = Reads::now(), before = Reads::now();
  for (int i = 0; i < polls; ++i) poll();
  const auto after = Reads::now();
  state.counters["reads"] = (after.calls - before.calls - (before.calls - first.calls)) / polls;
  state.counters["bytes_read"] = (after.bytes - before.bytes - (before.bytes - first.bytes)) / polls;
}

void pollUnchanged(benchmark::State& state) {
  const Folder folder;
  auto reader = JSONLReaders::events(writeLog(folder, state.range(0), eventRow));
  reader.read();
  for (auto _ : state) benchmark::DoNotOptimize(reader.read());
  countReads(state, [&] { reader.read(); });
}
BENCHMARK(pollUnchanged)->Arg(10'000)->Arg(1'000'000);

void pollOneRowMore(benchmark::State& state) {
  const Folder folder;
  const auto file = writeLog(folder, state.range(0), eventRow);
  auto reader = JSONLReaders::events(file);
  reader.read();
  const auto row = eventRow(7) + "\n";
  std::ofstream out(file, std::ios::binary | std::ios::app);
  for (auto _ : state) {
    state.PauseTiming();
    out << row << std::flush;
    state.ResumeTiming();
    benchmark::DoNotOptimize(reader.read());
  }
  countReads(state, [&] {
    out << row << std::flush;
    reader.read();
  });
  state.counters["bytes_a_row"] = static_cast<double>(row.size());
}
BENCHMARK(pollOneRowMore)->Arg(10'000)->Arg(1'000'000)->Iterations(2000);

/// Some days of rows: the memory they take is warm, as a program's own is. What a year costs on fresh pages is told by `firstReadYear...`.
constexpr std::int64_t firstReadRows = 5000;
constexpr std::int64_t yearRows = 200'000;

/// Keeps freed memory, so that it is the reading that is measured and not the kernel's price for a page, which differs a hundredfold between
/// machines.
void keepMemory() {
  ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
}

/// simdjson loads the file and parses each line into its DOM, and that is all.
template <class F>
void simdjsonAlone(benchmark::State& state, F&& rowOf) {
  keepMemory();
  const Folder folder;
  const auto file = writeLog(folder, firstReadRows, rowOf).string();
  simdjson::dom::parser parser;
  std::size_t rows = 0;
  for (auto _ : state) {
    const auto text = simdjson::padded_string::load(file).value();
    std::string_view rest(text.data(), text.size());
    rows = 0;
    for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
      rows += !parser.parse(rest.data(), end, false).error();
      rest.remove_prefix(end + 1);
    }
  }
  if (rows != firstReadRows) return state.SkipWithError("rows are missing");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(file)));
}

template <class Row, class F>
void firstRead(benchmark::State& state, IncrementalJSONLReader<Row> (*follow)(const fs::path&, RowFilter<Row>), F&& rowOf,
               std::size_t wanted = firstReadRows) {
  keepMemory();
  const Folder folder;
  auto reader = follow(writeLog(folder, static_cast<std::int64_t>(wanted), rowOf), {});
  std::size_t rows = 0;
  for (auto _ : state) {
    auto result = reader.readFull();
    state.PauseTiming();
    rows = std::get<0>(result).rows.size();
    std::get<0>(result).rows.clear();  // a program keeps what it has read
    state.ResumeTiming();
  }
  if (rows != wanted) return state.SkipWithError("rows are missing");
  state.SetBytesProcessed(state.iterations() * reader.watermark()->size);
}

void simdjsonEvents(benchmark::State& state) { simdjsonAlone(state, eventRow); }
void firstReadEvents(benchmark::State& state) { firstRead(state, JSONLReaders::events, eventRow); }
void simdjsonTicks(benchmark::State& state) { simdjsonAlone(state, tickRow); }
void firstReadTicks(benchmark::State& state) { firstRead(state, JSONLReaders::classifierTicks, tickRow); }
BENCHMARK(simdjsonEvents)->Unit(benchmark::kMillisecond);
BENCHMARK(firstReadEvents)->Unit(benchmark::kMillisecond);  // budget, for both: at least 0.35 of the speed above
BENCHMARK(simdjsonTicks)->Unit(benchmark::kMillisecond);
BENCHMARK(firstReadTicks)->Unit(benchmark::kMillisecond);
/// One read on fresh memory, as a program does when it starts.
void firstReadYearOfTicks(benchmark::State& state) { firstRead(state, JSONLReaders::classifierTicks, tickRow, yearRows); }
BENCHMARK(firstReadYearOfTicks)->Unit(benchmark::kMillisecond)->Iterations(1);

void bareThreeCalls(benchmark::State& state) {
  const Folder folder;
  const auto file = folder.path / "log.jsonl";
  const auto line = eventRow(7) + "\n";
  for (auto _ : state) {
    const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (::write(fd, line.data(), line.size()) < 0) return state.SkipWithError("write");
    ::close(fd);
  }
}
BENCHMARK(bareThreeCalls);

/// Budget: within 1.3 of the bare three calls.
void appendedRow(benchmark::State& state) {
  const Folder folder;
  const auto file = folder.path / "log.jsonl";
  const auto row = eventRow(7);
  for (auto _ : state) JSONLAppend::append(row, file);
}
BENCHMARK(appendedRow);

/// The same with the row's encoding, as a program calls it.
void appendedEvent(benchmark::State& state) {
  const Folder folder;
  const auto file = folder.path / "log.jsonl";
  const EventLogEvent event{.tsMs = 1'700'000'000'000, .type = "ui_opened", .detail = JSONObject{{"text", "back to the second paragraph"}}};
  for (auto _ : state) EventLogWriter::append(event, file);
}
BENCHMARK(appendedEvent);

}  // namespace

BENCHMARK_MAIN();
