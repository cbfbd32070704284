#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Folds/TimedTicks.h"
#include "AmbitudeCore/Gate/CoachGateTimeline.h"

/// The timeline's families of lines, each over one window's rows. Events are pointers into the log, ordered by time.
namespace halvo::TimelineLines {

using CoachGateTimeline::Line;
using EventPointers = std::vector<const EventLogEvent*>;

/// A person's own words as they stand between plain quotes: on one line, unable to end a turn, otherwise as typed.
std::string userWords(std::string_view text);
/// The same, at most `CoachGateTimeline::userTextCap` characters and "…".
std::string cappedUserWords(std::string_view text);

/// "at H:mm the classifier moved to STATE" for each change of state.
void appendStates(std::vector<Line>& lines, std::span<const TimedTick> ticks, const Calendar& calendar);
/// "at H:mm their declared task became" for each change of the task that the classifier was told.
void appendTasks(std::vector<Line>& lines, std::span<const TimedTick> ticks, const Calendar& calendar);
/// Declarations, clears and the ends of stated times. `changes` are all `task_declared` and `task_cleared` up to `nowMs`, also those before
/// `startMs`: the declaration in force always shows, however old.
void appendDeclarations(std::vector<Line>& lines, const EventPointers& changes, std::int64_t startMs, std::int64_t nowMs,
                        const Calendar& calendar);
/// Check-ins with their replies, answers, and what the person said. The coach's own words never show. `checkinTimes` is sorted.
void appendChat(std::vector<Line>& lines, const EventPointers& messages, const std::vector<std::int64_t>& checkinTimes,
                std::span<const TimedTick> ticks, const Calendar& calendar);

std::optional<std::string> observation(std::span<const TimedTick> ticks, const Calendar& calendar);
std::optional<std::string> capture(const CaptureWindowSummary& summary, const Calendar& calendar);

}  // namespace halvo::TimelineLines
