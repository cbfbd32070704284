#include "AmbitudeAppKit/Live/LiveLog.h"

#include <algorithm>
#include <array>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachServiceStatus.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo {

namespace {

LiveLog::Line eventLine(const EventLogEvent& event) {
  auto text = [&](std::string_view key) { return event.text(key) ? *event.text(key) : std::string(); };
  if (event.type == "app_chat_message" && text("role") == "user") return {event.tsMs, LiveLog::Kind::user, text("text")};
  if (event.type == "app_chat_message" && text("role") == "coach") {
    const auto cause = AppChatEvents::fallbackCause(event);
    const auto disclosed = cause ? " [" + disclosureLine(*cause, event.text("served_by") ? text("served_by") : "another model") + "]" : "";
    return {event.tsMs, LiveLog::Kind::coach, text("text") + disclosed, text("thinking")};
  }
  if (event.type == "task_declared") {
    auto words = event.text("notes") ? text("notes") : text("task");
    if (const auto minutes = cleanTaskMinutes(event.detail.find("horizon_minutes")))
      words += fmt::format(" ({} min)", *minutes);
    else if (event.text("until"))
      words += " (until " + text("until") + ")";
    return {event.tsMs, LiveLog::Kind::declaration, words};
  }
  if (event.type == "task_cleared") return {event.tsMs, LiveLog::Kind::declaration, "(cleared)"};
  if (auto told = CoachServiceStatus::displayText(event)) return {event.tsMs, LiveLog::Kind::trouble, std::move(*told)};
  if (const auto* told = event.text("user_reason")) return {event.tsMs, LiveLog::Kind::trouble, *told};
  const auto* reason = event.text("reason");
  return {event.tsMs, LiveLog::Kind::other, event.type + (reason ? ": " + *reason : "")};
}

std::optional<LiveLog::Line> tickLine(const ClassifierTick& tick) {
  const auto ms = tick.atMs();
  if (!ms) return std::nullopt;
  return LiveLog::Line{*ms, LiveLog::Kind::verdict,
                       tick.state.value_or("-") + " [" + tick.frontmostApp.value_or("-") + "] " + tick.reason.value_or("")};
}

LiveLog::Line decisionLine(const GateDecisionRecord& record) {
  return {record.atMs, LiveLog::Kind::gate, record.decision + ": " + record.summaryForCoach.value_or(record.failureReason.value_or(""))};
}

const char* label(LiveLog::Kind kind) {
  switch (kind) {
    case LiveLog::Kind::user: return "you";
    case LiveLog::Kind::coach: return "Lark";
    case LiveLog::Kind::trouble: return "notice";
    case LiveLog::Kind::declaration: return "declared";
    case LiveLog::Kind::verdict: return "verdict";
    case LiveLog::Kind::gate: return "gate";
    case LiveLog::Kind::other: return "event";
  }
  return "";
}

std::string rendered(std::int64_t tsMs, std::string_view label, std::string_view text, const Calendar& calendar) {
  const auto at = calendar.fields(tsMs);
  return fmt::format("{:02}:{:02}:{:02}  {:<8}  {}", at.hour, at.minute, at.second, label, text);
}

}  // namespace

LiveLog::LiveLog(const std::filesystem::path& root)
    : events_{JSONLReaders::events(DataPaths::events(root))},
      ticks_{JSONLReaders::classifierTicks(DataPaths::checkerLog(root))},
      decisions_{IncrementalJSONLReader<GateDecisionRecord>(root / "gate-decisions.jsonl", GateDecisionRecord::decode, 600)} {}

template <class Row, class F>
void LiveLog::take(Feed<Row>& feed, std::vector<Line>& lines, F&& lineOf) {
  std::vector<Row> rows;
  bool isReset = false;
  try {
    match(
        feed.reader.read(),
        [&](Reset<Row>&& all) {
          rows = std::move(all.rows);
          isReset = true;
        },
        [&](Appended<Row>&& more) { rows = std::move(more.rows); });
  } catch (const std::system_error&) {
    return;
  }
  const auto shownBefore = feed.shownUpToMs;
  for (const auto& row : rows) {
    std::optional<Line> line = lineOf(row);
    if (!line || (isReset && line->tsMs <= shownBefore)) continue;
    feed.shownUpToMs = std::max(feed.shownUpToMs, line->tsMs);
    line->text = TerminalText::oneLine(line->text);
    line->thinking = TerminalText::oneLine(line->thinking);
    lines.push_back(std::move(*line));
  }
}

std::vector<LiveLog::Line> LiveLog::poll() {
  std::vector<Line> lines;
  take(events_, lines, [](const EventLogEvent& event) { return std::optional(eventLine(event)); });
  take(ticks_, lines, tickLine);
  take(decisions_, lines, [](const GateDecisionRecord& record) { return std::optional(decisionLine(record)); });
  std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.tsMs < b.tsMs; });
  return lines;
}

bool LiveLog::isConversation(Kind kind) {
  return kind == Kind::user || kind == Kind::coach || kind == Kind::trouble || kind == Kind::declaration;
}

std::string LiveLog::render(const Line& line, const Calendar& calendar) {
  return rendered(line.tsMs, label(line.kind), line.text, calendar);
}

std::string LiveLog::renderThinking(const Line& line, const Calendar& calendar) {
  return line.thinking.empty() ? std::string() : rendered(line.tsMs, "thinking", line.thinking, calendar);
}

}  // namespace halvo
