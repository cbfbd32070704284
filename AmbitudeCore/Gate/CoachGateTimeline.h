#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "AmbitudeCore/Folds/Declaration.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/CaptureWindowSummary.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// The recent past in plain English, line by line, from judgments and events. It tells what reached the person and what they said, never
/// what the gate decided before. Screen text stands in it on one line, inside quotes; a person's own words are quoted plainly.
namespace halvo::CoachGateTimeline {

using Declaration = halvo::Declaration;

inline constexpr double defaultBoundHours = 24.0;
inline constexpr double defaultStartStep = 3600.0;  ///< seconds
inline constexpr std::size_t userTextCap = 240;     ///< characters of a person's own words in one line

struct Line {
  std::int64_t tsMs = 0;
  std::string text = {};
  bool operator==(const Line&) const = default;
};

/// Everything a timeline is made of. The lists are read where they lie; judgments are in the order of the log's readers.
struct Scene {
  std::span<const EventLogEvent> events = {};
  std::span<const ClassifierTick> ticks = {};
  std::int64_t floorMs = 0;  ///< nothing before it is read, but for the declaration in force
  std::int64_t nowMs = 0;
  double boundHours = defaultBoundHours;  ///< how far back the timeline reaches
  std::optional<CaptureWindowSummary> capture = {};
  double startStepSec = defaultStartStep;
  Calendar calendar = Calendar::local();  ///< the printed times'
};

/// The later of the floor and `nowMs` less the bound.
std::int64_t effectiveStart(std::int64_t floorMs, std::int64_t nowMs, double boundHours);
/// The same with `nowMs` less the bound rounded down to a multiple of the step, so that the first lines stay byte-identical within a step
/// and the model server's prompt cache stays warm. A step of 0 or less rounds nothing.
std::int64_t stableStart(std::int64_t floorMs, std::int64_t nowMs, double boundHours, double stepSec);

/// The lines joined by newlines; empty when nothing has happened.
std::string render(const Scene& scene);

/// What the classifier saw last, over `[asOfMs - lookbackMs, asOfMs]`; absent without a judgment to tell of.
std::optional<std::string> currentObservationSummary(std::span<const ClassifierTick> ticks, std::int64_t asOfMs, std::int64_t lookbackMs,
                                                     const Calendar& calendar);

}  // namespace halvo::CoachGateTimeline
