#include <benchmark/benchmark.h>

#include <vector>

#include "AmbitudeCore/Gate/CoachGateMessage.h"
#include "AmbitudeCore/Gate/Layer3Trigger.h"

namespace halvo {
namespace {

/// A full day: `ticks` judgments and `events` events over 24 hours, the states changing every few minutes.
struct Day {
  Calendar calendar = Calendar::named("America/New_York");
  std::int64_t nowMs = calendar.instant(2026, 3, 4, 23);
  std::vector<EventLogEvent> events;
  std::vector<ClassifierTick> ticks;

  Day(int tickCount, int eventCount) {
    constexpr std::int64_t dayMs = 86'400'000;
    const char* states[] = {"ON_TASK", "ON_TASK", "ON_TASK", "NOT_ALIGNED", "NOT_ALIGNED", "ABSTAINED", "IDLE"};
    for (int i = 0; i < tickCount; ++i) {
      const auto ms = nowMs - dayMs + i * (dayMs / tickCount);
      ticks.push_back(
          {.at = calendar.isoMillis(ms),
           .state = states[(i / 5) % 7],
           .frontmostApp = i % 9 == 0 ? "Lark" : "firefox",
           .frontmostWindowTitle = "The Fall of \"Rome\" – part " + std::to_string(i),
           .reason = "they are watching a documentary about “Rome” rather than writing the essay they declared, row " + std::to_string(i),
           .declaredTask = "Task: write the essay\nDeclared: 2026-03-04 2:00pm ET\n"});
    }
    for (int i = 0; i < eventCount; ++i) {
      const auto ms = nowMs - dayMs + i * (dayMs / eventCount);
      const char* role = i % 5 == 1 ? "coach" : "user";
      if (i % 5 == 0)
        events.push_back(
            {.tsMs = ms, .type = "task_declared", .detail = JSONObject{{"notes", "write the essay"}, {"horizon_minutes", 10}}});
      else if (i % 5 < 4)
        events.push_back({.tsMs = ms, .type = "app_chat_message", .detail = JSONObject{{"role", role}, {"text", std::string(300, 'x')}}});
      else
        events.push_back({.tsMs = ms, .type = "coach_checkin", .detail = JSONObject{{"summary_for_coach", "s"}}});
    }
  }
};

/// Budget: under 5 ms.
void gateMessage(benchmark::State& state) {
  const Day day(1500, 500);
  std::size_t bytes = 0;
  for (auto _ : state) {
    const auto message =
        CoachGateMessage::build({.scene = {.events = day.events, .ticks = day.ticks, .nowMs = day.nowMs, .calendar = day.calendar}});
    bytes = message.size();
    benchmark::DoNotOptimize(message.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  state.counters["budget_ms"] = 5;
}
BENCHMARK(gateMessage)->Unit(benchmark::kMillisecond);

/// What a wake costs before any model call, on a day and on a year of rows.
void triggerEvaluate(benchmark::State& state) {
  const Day day(static_cast<int>(state.range(0)), static_cast<int>(state.range(0)) / 3);
  for (auto _ : state)
    benchmark::DoNotOptimize(Layer3Trigger::evaluate({.events = day.events, .ticks = day.ticks, .asOfMs = day.nowMs}));
}
BENCHMARK(triggerEvaluate)->Arg(1500)->Arg(200'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace halvo

BENCHMARK_MAIN();
