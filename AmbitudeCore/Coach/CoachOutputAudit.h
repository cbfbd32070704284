#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// A look over what the coach said and did, for the people who look after the system. It changes nothing that anyone sees.
namespace CoachOutputAudit {

inline constexpr std::int64_t windowCorrelationMilliseconds = 10'000;

struct Finding {
  std::string check = {};
  std::int64_t tsMs = 0;
  std::string detail = {};
  std::string excerpt = {};
  bool operator==(const Finding&) const = default;
};
struct Report {
  std::vector<Finding> findings = {};
  int coachMessagesScanned = 0;
  int decisionsWithToolCallsScanned = 0;
  int skippedEmptyText = 0;
};
/// Events sorted by time.
Report sweep(std::span<const EventLogEvent> events);

/// Names of calls that are neither a known nor a retired tool.
std::vector<std::string> unknownToolNames(const std::vector<ToolCall>& in);
bool promisesQuiet(std::string_view text);
/// Letters of scripts that are neither Latin nor, by the user's own last messages, theirs.
std::size_t foreignScriptLetters(std::string_view in, std::string_view usersWords);
/// The degeneration reason, or "foreign_script_letters=N".
std::optional<std::string> garbleReason(std::string_view text, std::string_view usersWords);

}  // namespace CoachOutputAudit

namespace NightlyCoachOutputAudit {

inline constexpr double lookbackHours = 25.0;

struct EmptyWindow {
  std::string reason;
};
struct Findings {
  std::string reason;
};
struct Clean {};
using Outcome = std::variant<EmptyWindow, Findings, Clean>;
struct Result {
  Outcome outcome = Clean{};
  std::vector<std::string> logLines = {};
  CoachOutputAudit::Report report = {};
};
/// `overallCount`: the log's rows, for a caller that holds only the window; absent: those given.
Result evaluate(std::span<const EventLogEvent> allEvents, std::int64_t asOfMs, double lookback = lookbackHours,
                std::optional<std::size_t> overallCount = {});

/// The event that keeps an outcome; absent for a clean one.
std::optional<EventLogEvent> event(const Result& result, std::int64_t asOfMs);
/// The words that the application shows for such an event; absent for any other event.
std::optional<std::string> displayText(const EventLogEvent& event);

}  // namespace NightlyCoachOutputAudit

}  // namespace halvo
