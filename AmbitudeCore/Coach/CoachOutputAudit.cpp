#include "AmbitudeCore/Coach/CoachOutputAudit.h"

#include <algorithm>
#include <deque>
#include <set>

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/uscript.h>

#include "AmbitudeCore/Coach/CoachSanityChecks.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/CompiledRegexCache.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace CoachOutputAudit {

namespace {

constexpr std::size_t excerptCharacters = 120;
constexpr std::size_t usersMessagesKept = 50;

std::vector<ToolCall> callsOf(const EventLogEvent& decision) {
  std::vector<ToolCall> calls;
  const auto* list = decision.detail.find("tool_calls");
  if (list && list->arrayValue())
    for (const auto& entry : *list->arrayValue())
      if (auto call = ToolCall::decodeLogged(entry)) calls.push_back(std::move(*call));
  return calls;
}

/// The names that the turn itself could not place. Their calls were never taken, so they stand beside the calls and not among them.
std::vector<std::string> unrecognizedOf(const EventLogEvent& decision) {
  std::vector<std::string> names;
  const auto* list = decision.detail.find("unrecognized_tool_calls");
  if (list && list->arrayValue())
    for (const auto& entry : *list->arrayValue())
      if (entry.stringValue()) names.push_back(*entry.stringValue());
  return names;
}

/// The scripts of a text's letters, but for Latin and those that belong to no one script.
template <class F>
void eachForeignLetter(std::string_view text, F&& take) {
  for (std::size_t at = 0; at < text.size();) {
    const auto c = static_cast<UChar32>(Text::nextCodePoint(text, at));
    if (!u_isalpha(c)) continue;
    UErrorCode status = U_ZERO_ERROR;
    const auto script = uscript_getScript(c, &status);
    if (U_SUCCESS(status) && script != USCRIPT_LATIN && script != USCRIPT_COMMON && script != USCRIPT_INHERITED) take(script);
  }
}

}  // namespace

std::vector<std::string> unknownToolNames(const std::vector<ToolCall>& in) {
  std::vector<std::string> names;
  for (const auto& call : in)
    if (!CoachTools::recognizedToolNames().contains(call.name)) names.push_back(call.name);
  return names;
}

bool promisesQuiet(std::string_view text) {
  for (const char* pattern :
       {"stay(ing)? quiet", "stay(ing)? out of your way", "leave you (alone|to it)", "out of your hair", "not going to keep"}) {
    try {
      if (CompiledRegexCache::get(pattern, Regex::Flag::caseless)->matches(text)) return true;
    } catch (const RegexLimitExceeded&) {
      return false;
    }
  }
  return false;
}

std::size_t foreignScriptLetters(std::string_view in, std::string_view usersWords) {
  std::set<UScriptCode> theirs;
  eachForeignLetter(usersWords, [&](UScriptCode script) { theirs.insert(script); });
  std::size_t count = 0;
  eachForeignLetter(in, [&](UScriptCode script) { count += !theirs.contains(script); });
  return count;
}

std::optional<std::string> garbleReason(std::string_view text, std::string_view usersWords) {
  if (auto reason = CoachSanityChecks::degenerationReason(text)) return reason;
  const auto letters = foreignScriptLetters(text, usersWords);
  return letters > 0 ? std::optional(fmt::format("foreign_script_letters={}", letters)) : std::nullopt;
}

Report sweep(std::span<const EventLogEvent> events) {
  std::vector<std::int64_t> quietAtMs;
  for (const auto& event : events)
    if (event.type == "coach_decision")
      for (const auto& call : callsOf(event))
        if (call.name == "do_not_disturb" || call.name == "go_quiet") quietAtMs.push_back(event.tsMs);

  Report report;
  std::deque<std::string_view> usersMessages;
  for (const auto& event : events) {
    if (event.type == "coach_decision") {
      const auto calls = callsOf(event);
      auto unknown = unrecognizedOf(event);
      if (calls.empty() && unknown.empty()) continue;
      ++report.decisionsWithToolCallsScanned;
      for (auto& name : unknownToolNames(calls)) unknown.push_back(std::move(name));
      for (const auto& name : unknown)
        report.findings.push_back({"unknown_tool_call", event.tsMs, "called " + std::string(Text::prefix(name, excerptCharacters)), ""});
      continue;
    }
    const auto* role = event.type == "app_chat_message" ? event.text("role") : nullptr;
    const auto* text = event.text("text");
    if (role && *role == "user" && text) {
      usersMessages.push_back(*text);
      if (usersMessages.size() > usersMessagesKept) usersMessages.pop_front();
    }
    if (!role || *role != "coach") continue;
    ++report.coachMessagesScanned;
    if (!text || Text::isBlank(*text)) {
      ++report.skippedEmptyText;
      continue;
    }
    const auto excerpt = Text::capped(*text, excerptCharacters);
    if (promisesQuiet(*text) && std::none_of(quietAtMs.begin(), quietAtMs.end(), [&](std::int64_t ms) {
          return std::abs(ms - event.tsMs) <= windowCorrelationMilliseconds;
        }))
      report.findings.push_back({"quiet_promise_without_window", event.tsMs,
                                 fmt::format("promised quiet, no do_not_disturb within {}ms", windowCorrelationMilliseconds), excerpt});
    std::string theirs;
    for (const auto message : usersMessages) theirs += message;
    if (auto reason = garbleReason(*text, theirs)) report.findings.push_back({"garble", event.tsMs, *reason, excerpt});
  }
  return report;
}

}  // namespace CoachOutputAudit

namespace NightlyCoachOutputAudit {

Result evaluate(std::span<const EventLogEvent> allEvents, std::int64_t asOfMs, double lookback, std::optional<std::size_t> overallCount) {
  const auto overall = overallCount.value_or(allEvents.size());
  const auto fromMs = asOfMs - static_cast<std::int64_t>(lookback * 3'600'000);
  const auto begin = std::lower_bound(allEvents.begin(), allEvents.end(), fromMs,
                                      [](const EventLogEvent& event, std::int64_t ms) { return event.tsMs < ms; });
  const auto end =
      std::upper_bound(begin, allEvents.end(), asOfMs, [](std::int64_t ms, const EventLogEvent& event) { return ms < event.tsMs; });
  Result result;
  if (begin == end) {
    const auto reason =
        overall == 0
            ? std::string("no events in the log yet -- nothing to check (fresh install).")
            : fmt::format(
                  "no events at all in the last {:g}h, though the log holds {} event(s) overall -- the event log itself has gone quiet",
                  lookback, overall);
    result.outcome = EmptyWindow{reason};
    result.logLines.push_back("coach output audit: not evaluated: " + reason);
    return result;
  }
  result.report = CoachOutputAudit::sweep({begin, end});
  result.logLines.push_back(fmt::format("coach output audit: scanned {} coach messages, {} decisions carrying tool calls",
                                        result.report.coachMessagesScanned, result.report.decisionsWithToolCallsScanned));
  if (result.report.findings.empty()) {
    result.logLines.push_back("coach output audit: clean.");
    return result;
  }
  for (const auto& finding : result.report.findings)
    result.logLines.push_back(fmt::format("coach output audit: {} at {}: {}", finding.check, finding.tsMs, finding.detail));
  result.outcome = Findings{fmt::format("{} finding(s)", result.report.findings.size())};
  return result;
}

std::optional<EventLogEvent> event(const Result& result, std::int64_t asOfMs) {
  auto make = [&](const char* type, JSONObject detail) {
    return EventLogEvent{.tsMs = asOfMs, .kind = "event", .type = type, .detail = std::move(detail), .source = "coach-core"};
  };
  return match(
      result.outcome,
      [&](const EmptyWindow& empty) { return std::optional(make("coach_output_audit_empty_window", {{"reason", empty.reason}})); },
      [&](const Findings& found) {
        JSONValue::Array list;
        for (const auto& finding : result.report.findings)
          list.push_back(
              JSONObject{{"check", finding.check}, {"ts_ms", finding.tsMs}, {"detail", finding.detail}, {"excerpt", finding.excerpt}});
        return std::optional(make("coach_output_audit_findings", {{"reason", found.reason}, {"findings", std::move(list)}}));
      },
      [](const Clean&) { return std::optional<EventLogEvent>(); });
}

std::optional<std::string> displayText(const EventLogEvent& event) {
  if (event.type == "coach_output_audit_findings") return "The nightly coach-output audit found something odd overnight.";
  if (event.type == "coach_output_audit_empty_window") return "The nightly coach-output audit had nothing to check.";
  return std::nullopt;
}

}  // namespace NightlyCoachOutputAudit

}  // namespace halvo
