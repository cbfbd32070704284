#include "AmbitudeCore/Gate/CoachGateTimeline.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/TimedTicks.h"
#include "AmbitudeCore/Gate/TimelineLines.h"

namespace halvo::CoachGateTimeline {
namespace {
/// A century: no log reaches further back, and no sum of times overflows.
constexpr double longestMs = 100.0 * 366 * 86'400'000;

std::int64_t milliseconds(double value, double unitMs) {
  const auto ms = value * unitMs;
  return std::isnan(ms) ? 0 : std::llround(std::clamp(ms, -longestMs, longestMs));
}

std::int64_t roundedDown(std::int64_t value, std::int64_t step) {
  const auto rest = value % step;
  return value - (rest < 0 ? rest + step : rest);
}

void sortByTime(TimelineLines::EventPointers& events) {
  if (!std::ranges::is_sorted(events, {}, &EventLogEvent::tsMs)) std::ranges::stable_sort(events, {}, &EventLogEvent::tsMs);
}
}  // namespace

std::int64_t effectiveStart(std::int64_t floorMs, std::int64_t nowMs, double boundHours) {
  return std::max(floorMs, nowMs - milliseconds(boundHours, 3'600'000));
}

std::int64_t stableStart(std::int64_t floorMs, std::int64_t nowMs, double boundHours, double stepSec) {
  const auto bound = nowMs - milliseconds(boundHours, 3'600'000);
  const auto step = milliseconds(stepSec, 1000);
  return std::max(floorMs, step > 0 ? roundedDown(bound, step) : bound);
}

std::string render(const Scene& scene) {
  const auto startMs = stableStart(scene.floorMs, scene.nowMs, scene.boundHours, scene.startStepSec);
  const auto ticks = TimedTicks::within(scene.ticks, startMs, scene.nowMs);

  TimelineLines::EventPointers changes, messages;
  std::vector<std::int64_t> checkinTimes;
  for (const auto& event : scene.events) {
    if (event.tsMs > scene.nowMs) continue;
    if (event.type == EventType::taskDeclared || event.type == EventType::taskCleared) changes.push_back(&event);
    if (event.tsMs < startMs) continue;
    if (event.type == EventType::chatMessage) messages.push_back(&event);
    if (event.type == EventType::coachCheckin) checkinTimes.push_back(event.tsMs);
  }
  sortByTime(changes);
  sortByTime(messages);
  std::ranges::sort(checkinTimes);

  std::vector<Line> lines;
  TimelineLines::appendStates(lines, ticks, scene.calendar);
  TimelineLines::appendTasks(lines, ticks, scene.calendar);
  TimelineLines::appendDeclarations(lines, changes, startMs, scene.nowMs, scene.calendar);
  TimelineLines::appendChat(lines, messages, checkinTimes, ticks, scene.calendar);
  std::ranges::stable_sort(lines, {}, &Line::tsMs);

  std::string text;
  const auto add = [&text](std::string_view line) {
    if (!text.empty()) text += '\n';
    text += line;
  };
  for (const auto& line : lines) add(line.text);
  if (const auto observation = TimelineLines::observation(ticks, scene.calendar)) add(*observation);
  if (scene.capture)
    if (const auto capture = TimelineLines::capture(*scene.capture, scene.calendar)) add(*capture);
  return text;
}

std::optional<std::string> currentObservationSummary(std::span<const ClassifierTick> ticks, std::int64_t asOfMs, std::int64_t lookbackMs,
                                                     const Calendar& calendar) {
  return TimelineLines::observation(TimedTicks::within(ticks, asOfMs - lookbackMs, asOfMs), calendar);
}

}  // namespace halvo::CoachGateTimeline
