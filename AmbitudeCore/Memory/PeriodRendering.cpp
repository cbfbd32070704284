#include "AmbitudeCore/Memory/PeriodRendering.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Gate/TimelineLines.h"
#include "AmbitudeCore/Memory/ConsolidationPromptText.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::PeriodRendering {

namespace {

// The first two and the last were written by earlier builds; their rows are still read.
constexpr std::string_view coachSaid = "checker_output_sent", userSaid = "checker_input_received", session = "coach_session";
constexpr std::string_view projectLink = "app_project_link_asserted";

std::optional<std::string> words(const EventLogEvent& event, std::string_view key) {
  const auto* text = event.text(key);
  if (!text || Text::isBlank(*text)) return std::nullopt;
  return Text::capped(TimelineLines::userWords(Text::trim(*text)), lineCap);
}

std::optional<std::string> spoken(const char* who, const EventLogEvent& event) {
  auto text = words(event, "text");
  return text ? std::optional(who + *text) : std::nullopt;
}

/// Absent for a message without words.
std::optional<std::string> line(const EventLogEvent& event) {
  if (event.type == coachSaid) return spoken("coach: ", event);
  if (event.type == userSaid) return spoken("you: ", event);
  if (event.type == session) return "conversation ended, task: " + words(event, "task").value_or("(no task)");
  if (event.type == projectLink)
    return fmt::format("fact asserted: {} is {}", words(event, "app").value_or("(unspecified)"),
                       words(event, "project").value_or("(unspecified)"));
  if (event.type == EventType::taskDeclared) {
    auto task = words(event, "notes");
    if (!task) task = words(event, "task");
    return "declared: " + task.value_or("(no task)");
  }
  const auto* role = event.text("role");
  if (!role || (*role != "coach" && *role != "user")) return std::nullopt;
  return spoken(*role == "coach" ? "coach: " : "you: ", event);
}

}  // namespace

bool contributes(std::string_view type) {
  static constexpr std::array types{coachSaid, userSaid, projectLink, EventType::chatMessage, EventType::taskDeclared, session};
  return std::ranges::find(types, type) != types.end();
}

Rendered render(std::span<const EventLogEvent> events, const Period& period, const Calendar& calendar, std::size_t maxBytes) {
  const auto first = std::ranges::lower_bound(events, period.startMs, {}, &EventLogEvent::tsMs);
  const auto last = std::ranges::lower_bound(first, events.end(), period.endMs, {}, &EventLogEvent::tsMs);
  std::vector<std::pair<std::int64_t, std::string>> lines;
  for (auto event = first; event != last; ++event)
    if (contributes(event->type))
      if (const auto text = line(*event))
        lines.emplace_back(event->tsMs, fmt::format("[{}] {}", calendar.monthDay2HourMinute(event->tsMs), *text));
  Rendered rendered;
  if (lines.empty()) return {.text = std::string(ConsolidationPromptText::quietPeriod)};
  // The newest words are those that may still matter; a number and a newline go with each.
  constexpr std::size_t numberBytes = 7;
  for (std::size_t used = 0, i = lines.size(); i-- > 0;) {
    used += lines[i].second.size() + numberBytes;
    if (used <= maxBytes) continue;
    rendered.leftOut = i + 1;
    break;
  }
  for (auto i = rendered.leftOut; i < lines.size(); ++i) {
    rendered.lineTsMs.push_back(lines[i].first);
    rendered.text += fmt::format("{}{}. {}", rendered.text.empty() ? "" : "\n", rendered.lineTsMs.size(), lines[i].second);
  }
  return rendered;
}

}  // namespace halvo::PeriodRendering
