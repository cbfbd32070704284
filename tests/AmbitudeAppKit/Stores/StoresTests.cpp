#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include <fmt/format.h>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/DiagnosticsReport.h"
#include "AmbitudeAppKit/Stores/HistoryExport.h"
#include "AmbitudeAppKit/Stores/PersonActions.h"
#include "AmbitudeCore/Backends/TurnUsageLog.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar;

TEST(PersonActions, readsWhatWasTyped) {
  using PersonActions::readTyped, PersonActions::Typed;
  using enum Typed::Kind;
  const struct { const char* line; Typed want; } table[] = {
      {"  ", {}},
      {"Clear", {.kind = clear}},
      {"clear the table", {.kind = declare, .task = "clear the table"}},
      {"write the essay", {.kind = declare, .task = "write the essay"}},
      {" write\nthe essay until 5 PM ", {.kind = declare, .task = "write the essay", .until = "5pm"}},
      {"wait until the rain stops", {.kind = declare, .task = "wait until the rain stops"}},
      {"read till 17:30", {.kind = declare, .task = "read", .until = "17:30"}},
      {"read for 40 min", {.kind = declare, .task = "read", .until = "3:40pm"}},
      {"read for 2 hours", {.kind = declare, .task = "read", .until = "5:00pm"}},
      {"look for 3 papers", {.kind = declare, .task = "look for 3 papers"}},
      {"break", {.kind = rest}},
      {"Break until 3:15pm", {.kind = rest, .until = "3:15pm"}},
      {"until 5pm", {.kind = declare, .task = "until 5pm"}},
  };
  for (const auto& c : table) EXPECT_EQ(readTyped(c.line, at(15, 0), calendar), c.want) << c.line;
}

TEST(BackgroundQueue, goesOnBehindAFailureAndStopsWhatRuns) {
  std::atomic<int> done = 0;
  bool wasStopped = false;
  {
    BackgroundQueue queue;
    queue.post([](const std::stop_token&) { throw std::runtime_error("once"); });
    queue.post([&](const std::stop_token&) { ++done; });
    ASSERT_TRUE(test::eventually([&] { return done == 1; }));
    queue.post([&](const std::stop_token& stop) {
      ++done;
      wasStopped = test::eventually([&] { return stop.stop_requested(); });
    });
    queue.post([&](const std::stop_token&) { done = 100; });
    ASSERT_TRUE(test::eventually([&] { return done == 2; }));
  }
  EXPECT_TRUE(wasStopped);
  EXPECT_EQ(done, 2) << "what had not begun is dropped";
}

TEST(DiagnosticsReport, holdsNothingThatCameFromAPerson) {
  const auto usage = TurnUsageLog::line({.text = "t", .thinking = "hm", .usage = ChatUsage{.promptTokens = 9, .completionTokens = 2}});
  const struct { std::string line; bool isKept; } table[] = {
      {"2026-11-25T14:18:41Z Signals samples every 1500 ms", true},
      {"2026-11-25T14:18:41Z classifier started: model practice-model, a look every 1 s, judgments 60 to 300 s apart", true},
      {"layer3 gate " + usage, true},
      {"layer3 coach " + TurnUsageLog::line({}), true},
      {"layer3 coach " + TurnUsageLog::line({.usage = ChatUsage{.promptTokens = 9, .cachedPromptTokens = 3, .reasoningTokens = 4, .costUSD = 0.01},
                                             .servedByFallback = true,
                                             .provenance = {{.provider = "Google Vertex", .servedModel = "maker/model-1"}}}), true},
      {"classifier started: model gemma4:e4b-it-qat, a look every 3 s, judgments 30 to 300 s apart", true},
      {"classifier started: model /home/anna/client-x/model.gguf, a look every 3 s, judgments 30 to 300 s apart", false},
      {"layer3 coach usage: My therapist said (secret) at 14:00", false},
      {"Capturer ended with 75; started again in 60 s", true},
      {"2026-11-25T14:18:41Z recording nothing: another Supervisor records to this data root; this one ends", true},
      {"standing memory: 3 thread(s), 2 fact(s), 1 lesson(s)", true},
      {"Signals runs", true},
      {"2026-11-25T14:18:41Z recording nothing: configured data root (/home/anna/data) isn't mounted", false},
      {"Signals runs\r", false},
      {"2026-11-25T14:18:41Z judged ON_TASK (0.86)", false},
      {"layer3: holding until 10:18: they asked for quiet", false},
      {"could not read /home/anna/data/io-layer/events.jsonl", false},
      {"my diary 2026-11-25T14:18:41Z Signals runs", false},
      {"", false},
  };
  std::string log;
  for (const auto& c : table) {
    EXPECT_EQ(DiagnosticsReport::isMechanical(c.line), c.isKept) << c.line;
    log += c.line + "\n";
  }
  const std::vector<DiagnosticsReport::Log> logs{{"A.log", log}};
  const auto report = DiagnosticsReport::render({.version = "1", .system = "Linux", .programs = {"Coach: running"}, .writtenAt = "now"}, logs, 2);
  EXPECT_EQ(report, "Halvo diagnostics, now\nversion 1\nLinux\nCoach: running\n\nA.log: 10 line(s) of a known shape, 8 left out\n"
                    "  standing memory: 3 thread(s), 2 fact(s), 1 lesson(s)\n  Signals runs\n");
}

TEST(HistoryExport, copiesTheStretchAndLeavesNothingHalf) {
  const test::TemporaryFolder folder;
  const auto root = folder.path() / "data", out = folder.path() / "out";
  std::string rows;
  for (int hour = 8; hour < 12; ++hour)
    rows += fmt::format("{{\"ts_ms\":{},\"kind\":\"event\",  \"type\":\"x\",\"detail\":{{}},\"source\":\"s\"}}\n", at(hour, 0));
  folder.write("data/io-layer/events.jsonl", rows + "broken\n");
  const HistoryExport::Choice choice{.fromMs = at(9, 0), .toMs = at(10, 0), .withSamples = true};
  const auto written = HistoryExport::write(choice, root, out);
  ASSERT_EQ(written.size(), 4u);
  EXPECT_EQ(written[0].rows, 2);
  EXPECT_EQ(readFile(out / "events.jsonl"), rows.substr(rows.size() / 4, rows.size() / 2)) << "byte for byte";
  EXPECT_EQ(readFile(out / "samples.csv"), "ts_ms,app,browser_title,idle_sec\n");
  EXPECT_THROW(HistoryExport::write(choice, root, out), std::system_error) << "what is there is never written over";
  EXPECT_EQ(readFile(out / "events.jsonl").size(), rows.size() / 2);
  folder.write("data/signals.sqlite", "this is no database, and what was written before that is taken away again");
  EXPECT_ANY_THROW(HistoryExport::write(choice, root, folder.path() / "other"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "other"));
}

}  // namespace
}  // namespace halvo
