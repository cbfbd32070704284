#include "AmbitudeCore/Coach/CoachTurnEffects.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachSanityChecks.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/GoQuietArguments.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::CoachTurnEffects {

namespace {

/// A call that could not be used, with what was sent.
EventLogEvent malformed(const char* type, const ToolCall& call, const std::string& reason, std::int64_t asOfMs, JSONObject extra = {}) {
  extra.set("reason", reason);
  extra.set("arguments", call.arguments);
  return event(type, std::move(extra), asOfMs);
}

ToolEffect refused(const ToolCall& call, EventLogEvent marker, std::string result) {
  return {.call = call, .events = {std::move(marker)}, .result = std::move(result), .isRefused = true};
}

ToolEffect writeIntention(const ToolCall& call, std::int64_t asOfMs) {
  const auto read = WriteCurrentIntentionArguments::parse(call.arguments);
  if (!read) {
    JSONObject extra;
    const auto* horizon = call.arguments.find("horizon_minutes");
    if (horizon && !horizon->isNull()) extra.set("attempted_horizon_minutes", *horizon);
    const char* reason = extra.empty() ? "missing or empty notes" : "missing notes or unusable horizon_minutes";
    return refused(call, malformed("write_task_malformed", call, reason, asOfMs, std::move(extra)),
                   "Not recorded — `notes` was missing or empty, or `horizon_minutes` was no usable number of minutes.");
  }
  JSONObject detail{{"task", read->notes}, {"notes", read->notes}, {"until", nullptr}, {"why", nullptr}};
  if (read->horizonMinutes) detail.set("horizon_minutes", *read->horizonMinutes);
  const auto terms = read->horizonMinutes ? fmt::format(" for {} minutes.", *read->horizonMinutes) : std::string(" with no time limit.");
  return {call, {event("task_declared", std::move(detail), asOfMs)}, "Recorded: " + read->notes + terms};
}

ToolEffect correctJudgment(const ToolCall& call, std::int64_t asOfMs, CorrectJudgmentGuard::Verdict guard) {
  const auto read = CorrectJudgmentArguments::parse(call.arguments);
  if (!read)
    return refused(call, malformed("correct_judgment_malformed", call, "missing app or project", asOfMs),
                   "Not recorded — missing app or project.");
  if (guard == CorrectJudgmentGuard::Verdict::bareAnswerToOwnQuestion)
    return refused(
        call, event("correct_judgment_refused", {{"reason", "bare_answer_to_own_question"}}, asOfMs),
        "Not recorded — their reply was only a yes or no to your own question, so the link would be your guess rather than a fact they "
        "stated. If it matters, ask them to say it in their own words.");
  return {call, {event("app_project_link_asserted", {{"app", read->app}, {"project", read->project}}, asOfMs)},
          "Recorded: " + read->app + " is part of " + read->project + "."};
}

ToolEffect goQuiet(const ToolCall& call, std::int64_t asOfMs, const Calendar& calendar) {
  const auto parsed = GoQuietArguments::parse(call.arguments);
  auto opened = GoQuietArguments::requestedEvent(parsed, std::nullopt, asOfMs, calendar);
  if (!opened)
    return refused(call, malformed("user_quiet_malformed", call, "no usable minutes or rest_of_day", asOfMs),
                   GoQuietArguments::resultText(parsed));
  return {call, {std::move(*opened)}, GoQuietArguments::resultText(parsed)};
}

ToolEffect rememberCorrection(const ToolCall& call, std::int64_t asOfMs, const Calendar& calendar) {
  const auto read = RememberCorrectionArguments::parse(call.arguments);
  if (read.correction.empty())
    return refused(call, malformed("remember_correction_malformed", call, "missing correction", asOfMs),
                   "Not recorded — `correction` was missing or empty, so nothing was saved.");
  if (!read.lasts)
    return refused(call, malformed("remember_correction_lasts_missing", call, "missing or unknown lasts", asOfMs),
                   "Not recorded — `lasts` was missing or not one of until_changed, rest_of_today, next_few_hours, so nothing was saved.");
  auto result = read.correction;
  switch (*read.lasts) {
    case CoachCorrection::Lasts::untilChanged: break;
    case CoachCorrection::Lasts::restOfToday: result += " — for the rest of today."; break;
    case CoachCorrection::Lasts::nextFewHours: result += " — for the next few hours."; break;
  }
  const auto recorded = CoachCorrectionRecordedEvent::make(
      {.text = read.correction, .scope = read.scope, .lasts = *read.lasts, .asOfMs = asOfMs}, calendar);
  return {call, {recorded}, "Recorded: " + result};
}

ToolEffect proposeOptions(const ToolCall& call, std::int64_t asOfMs) {
  const auto read = ProposeOptionsArguments::parse(call.arguments);
  if (read.options.size() < 2)
    return refused(call, malformed("propose_options_malformed", call, fmt::format("usable_options={}", read.options.size()), asOfMs),
                   "Not shown — fewer than two usable options.");
  if (read.title.empty())
    return refused(
        call, malformed("propose_options_malformed", call, fmt::format("missing title usable_options={}", read.options.size()), asOfMs),
        "Not shown — missing title.");
  JSONValue::Array options;
  for (const auto& option : read.options) {
    JSONObject entry{{"id", option.id}, {"label", option.label}};
    if (option.hint) entry.set("hint", *option.hint);
    options.push_back(std::move(entry));
  }
  return {call,
          {event("option_card_offered",
                 {{"setting", read.setting}, {"title", read.title}, {"message", read.message}, {"options", std::move(options)}}, asOfMs)},
          "Shown."};
}

std::optional<std::string> messageArgument(const ToolCall& call) {
  const auto* message = call.arguments.find("message");
  if (!message || !message->stringValue()) return std::nullopt;
  const auto words = Text::trim(*message->stringValue());
  return words.empty() ? std::nullopt : std::optional(std::string(words));
}

std::string cleaned(std::string_view text) {
  return std::string(Text::trim(CoachSanityChecks::stripLeakedToolCallSyntax(CoachSanityChecks::stripSilenceSentinel(text))));
}

JSONValue::Array namesOf(const std::vector<std::string>& names) { return JSONValue::Array(names.begin(), names.end()); }

EventLogEvent decision(const ToolEffects& effects, std::int64_t asOfMs) {
  JSONValue::Array calls, results;
  for (const auto& effect : effects.taken) {
    calls.push_back(effect.call.asLoggedJSON());
    results.push_back(JSONObject{{"name", effect.call.name}, {"text", effect.result}});
  }
  JSONObject detail{{"tool_calls", std::move(calls)}};
  if (!results.empty()) detail.set("tool_results", std::move(results));
  if (!effects.unrecognized.empty()) detail.set("unrecognized_tool_calls", namesOf(effects.unrecognized));
  if (!effects.droppedDuplicates.empty()) detail.set("dropped_duplicate_tool_calls", namesOf(effects.droppedDuplicates));
  return event("coach_decision", std::move(detail), asOfMs);
}

}  // namespace

EventLogEvent event(const char* type, JSONObject detail, std::int64_t asOfMs) {
  return {.tsMs = asOfMs, .kind = "event", .type = type, .detail = std::move(detail), .source = "coach-core"};
}

ToolEffects toolEffects(const std::vector<ToolCall>& calls, std::int64_t asOfMs, CorrectJudgmentGuard::Verdict guard,
                        const Calendar& calendar) {
  ToolEffects effects;
  std::vector<ToolCall> seen;
  for (const auto& call : calls) {
    const auto name = CoachTools::canonicalToolName(call.name);
    const auto& live = Layer3Tools::all();
    const bool isLive = std::any_of(live.begin(), live.end(), [&](const ToolSpec& tool) { return tool.name == name; });
    if (!isLive) {
      // A tool of the older road is known and not this coach's to use; any other name is no tool at all.
      const bool isKnown = CoachTools::recognizedToolNames().contains(call.name);
      if (!isKnown) effects.unrecognized.push_back(call.name);
      effects.markers.push_back(event(isKnown ? "tool_call_denied" : "tool_call_dropped",
                                      {{"name", call.name}, {"reason", isKnown ? "not one of the coach's tools" : "unknown tool"}},
                                      asOfMs));
      continue;
    }
    if (std::find(seen.begin(), seen.end(), call) != seen.end()) {
      effects.droppedDuplicates.push_back(call.name);
      effects.markers.push_back(event("tool_call_dropped", {{"name", call.name}, {"reason", "duplicate"}}, asOfMs));
      continue;
    }
    seen.push_back(call);
    if (name == "write_current_intention")
      effects.taken.push_back(writeIntention(call, asOfMs));
    else if (name == "correct_judgment")
      effects.taken.push_back(correctJudgment(call, asOfMs, guard));
    else if (name == "go_quiet")
      effects.taken.push_back(goQuiet(call, asOfMs, calendar));
    else if (name == "remember_correction")
      effects.taken.push_back(rememberCorrection(call, asOfMs, calendar));
    else
      effects.taken.push_back(proposeOptions(call, asOfMs));
    if (!effects.message && !effects.taken.back().isRefused) effects.message = messageArgument(call);
  }
  return effects;
}

std::optional<Rejection> rejection(const ChatResponse& response, std::int64_t asOfMs) {
  auto reject = [&](const char* type, std::string reason, std::optional<std::string> userReason) {
    return Rejection{event(type, {{"reason", reason}}, asOfMs), reason, std::move(userReason)};
  };
  // This reply is gone for good: the next wake may ask for a new one, but never for this one again.
  if (response.truncated)
    return reject("coach_output_rejected", "reply cut off at the token limit (finish_reason=length) — discarded, not shown, not retried",
                  truncationUserReason);
  if (response.toolCalls.empty() && Text::isBlank(response.text)) return reject("coach_turn_failed", "empty_completion", std::nullopt);
  auto fault = CoachSanityChecks::degenerationReason(cleaned(response.text));
  for (auto call = response.toolCalls.begin(); call != response.toolCalls.end() && !fault; ++call)
    if (const auto message = messageArgument(*call)) fault = CoachSanityChecks::degenerationReason(cleaned(*message));
  if (fault) return reject("coach_output_degenerate", std::move(*fault), std::nullopt);
  return std::nullopt;
}

std::string spokenText(const ChatResponse& response, const ToolEffects& effects) {
  if (auto text = cleaned(response.text); !text.empty()) return text;
  return effects.message ? cleaned(*effects.message) : std::string();
}

std::vector<EventLogEvent> baseEvents(const ChatResponse& response, std::int64_t asOfMs, CorrectJudgmentGuard::Verdict guard,
                                      const Calendar& calendar) {
  if (const auto rejected = rejection(response, asOfMs)) {
    if (response.truncated) return {TurnTruncatedEvent::make(rejected->reason, asOfMs), rejected->event};
    return {rejected->event};
  }
  const auto effects = toolEffects(response.toolCalls, asOfMs, guard, calendar);
  std::vector<EventLogEvent> events = effects.markers;
  for (const auto& effect : effects.taken) events.insert(events.end(), effect.events.begin(), effect.events.end());
  events.push_back(decision(effects, asOfMs));
  if (const auto text = spokenText(response, effects); !text.empty()) {
    events.push_back(AppChatEvents::coachMessage({.text = text,
                                                  .thinking = response.thinking,
                                                  .truncated = response.truncated,
                                                  .asOfMs = asOfMs,
                                                  .servedBy = response.servedBy,
                                                  .servedByFallback = response.servedByFallback,
                                                  .provenance = response.provenance,
                                                  .fallbackCause = response.fallbackCause}));
  } else if (!Text::isBlank(response.text)) {
    const bool silent = CoachSanityChecks::stripSilenceSentinel(response.text).empty();
    events.push_back(event("coach_reply_not_surfaced", {{"reason", silent ? "silence" : "only a leaked tool call"}}, asOfMs));
  }
  return events;
}

std::vector<EventLogEvent> withoutCorrections(std::vector<EventLogEvent> events) {
  constexpr const char* notSaved = "Not recorded — the corrections could not be written just now, so nothing was saved.";
  for (auto& row : events) {
    if (row.type == "coach_correction_recorded")
      row = event("tool_call_dropped", {{"name", "remember_correction"}, {"reason", "corrections could not be written"}}, row.tsMs);
    auto* detail = row.type == "coach_decision" ? row.detail.mutableObject() : nullptr;
    const auto* results = detail ? detail->find("tool_results") : nullptr;
    if (!results || !results->arrayValue()) continue;
    JSONValue::Array told;
    for (const auto& result : *results->arrayValue()) {
      const auto *name = result.find("name"), *text = result.find("text");
      const bool isRecorded = name && *name == JSONValue("remember_correction") && text && text->stringValue() &&
                              text->stringValue()->starts_with("Recorded: ");
      told.push_back(isRecorded ? JSONValue(JSONObject{{"name", "remember_correction"}, {"text", notSaved}}) : result);
    }
    detail->set("tool_results", std::move(told));
  }
  return events;
}

EventLogEvent userDismissedUIEvent(std::int64_t asOfMs) { return event("ui_closed", {{"dismissed_by", "user"}}, asOfMs); }

}  // namespace halvo::CoachTurnEffects

halvo::EventLogEvent halvo::TurnTruncatedEvent::make(const std::string& reason, std::int64_t asOfMs) {
  return CoachTurnEffects::event("turn_truncated", {{"reason", reason}}, asOfMs);
}
