#include "AmbitudeCore/Coach/Layer3Conversation.h"

#include <algorithm>
#include <cmath>
#include <map>

#include <fmt/format.h>

#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/PromptStack.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo {

namespace Layer3Conversation {

namespace {

/// Gathers messages and puts a marker between two that lie far apart.
class Fold {
 public:
  explicit Fold(const Calendar& calendar) : calendar_(calendar) {}

  void notice(std::int64_t atMs, std::string_view summary) {
    add(atMs, ChatMessage::user("It's " + calendar_.hourMinute(atMs) + ". The system's summary of what it observed: " +
                                ScreenText::quoted(summary, ScreenText::reasonCap)));
  }
  void user(std::int64_t atMs, std::string_view text) {
    // Typed or pasted, a turn marker in it must not end their turn.
    add(atMs, ChatMessage::user("[" + calendar_.hourMinute(atMs) + "] " + ScreenText::breakTurnMarkers(text)));
  }
  void note(std::int64_t atMs, std::string_view text) { add(atMs, ChatMessage::user(ScreenText::breakTurnMarkers(text))); }
  void add(std::int64_t atMs, ChatMessage message) {
    if (lastMs_ && atMs - *lastMs_ > gapMarkerMs) messages.push_back(ChatMessage::user(gapMarker(atMs - *lastMs_)));
    lastMs_ = atMs;
    messages.push_back(std::move(message));
  }

  std::vector<ChatMessage> messages;

 private:
  const Calendar& calendar_;
  std::optional<std::int64_t> lastMs_;
};

JSONValue withoutMarkers(const JSONValue& value) {
  if (const auto* text = value.stringValue()) return ScreenText::breakTurnMarkers(*text);
  if (const auto* list = value.arrayValue()) {
    JSONValue::Array out;
    for (const auto& entry : *list) out.push_back(withoutMarkers(entry));
    return out;
  }
  if (const auto* object = value.objectValue()) {
    JSONObject out;
    for (const auto& [key, member] : *object) out.set(ScreenText::breakTurnMarkers(key), withoutMarkers(member));
    return out;
  }
  return value;
}

struct Replay {
  std::vector<ToolCall> calls;
  std::vector<std::string> results;
};

/// The calls of a turn that may be shown to the model again, each with what it was answered.
Replay replayOf(const EventLogEvent& decision) {
  Replay replay;
  const auto* calls = decision.detail.find("tool_calls");
  const auto* results = decision.detail.find("tool_results");
  if (!calls || !calls->arrayValue()) return replay;
  for (std::size_t i = 0; i < calls->arrayValue()->size(); ++i) {
    const auto call = ToolCall::decodeLogged((*calls->arrayValue())[i]);
    if (!call || !Layer3Tools::replayableToolNames().contains(call->name)) continue;
    const auto* result =
        results && results->arrayValue() && i < results->arrayValue()->size() ? (*results->arrayValue())[i].find("text") : nullptr;
    replay.calls.push_back(withoutTurnMarkers(*call));
    replay.results.push_back(result && result->stringValue() ? ScreenText::breakTurnMarkers(*result->stringValue()) : "ok");
  }
  return replay;
}

Fold foldEvents(const View& view, const Calendar& calendar) {
  const auto startMs = std::max(view.floorMs, PromptWindowQuantization::floor(view.asOfMs - windowMs, view.stepSec));
  const auto begin = std::lower_bound(view.events.begin(), view.events.end(), startMs,
                                      [](const EventLogEvent& event, std::int64_t ms) { return event.tsMs < ms; });
  const auto end =
      std::upper_bound(begin, view.events.end(), view.asOfMs, [](std::int64_t ms, const EventLogEvent& event) { return ms < event.tsMs; });
  // A turn's rows share one time, and its decision may stand before or behind its words.
  std::map<std::int64_t, Replay> replays;
  for (auto event = begin; event != end; ++event)
    if (event->type == "coach_decision") replays.emplace(event->tsMs, replayOf(*event));

  Fold fold(calendar);
  for (auto event = begin; event != end; ++event) {
    const auto* text = event->text("text");
    if (event->type == "coach_checkin") {
      const auto* summary = event->text("summary_for_coach");
      fold.notice(event->tsMs, summary ? *summary : "");
    } else if (event->type == "option_card_change_note" && text && !text->empty()) {
      fold.note(event->tsMs, *text);
    } else if (event->type == "app_chat_message" && text && !text->empty()) {
      const auto* role = event->text("role");
      if (role && *role == "user") {
        fold.user(event->tsMs, *text);
      } else if (role && *role == "coach") {
        auto replay = replays.extract(event->tsMs);
        if (replay.empty() || replay.mapped().calls.empty()) {
          fold.add(event->tsMs, ChatMessage::assistant(ScreenText::breakTurnMarkers(*text)));
        } else {
          auto& [calls, results] = replay.mapped();
          fold.add(event->tsMs, ChatMessage::assistant(ScreenText::breakTurnMarkers(*text), calls));
          for (std::size_t i = 0; i < calls.size(); ++i) fold.messages.push_back(ChatMessage::toolResult(calls[i].name, results[i]));
        }
      }
    }
  }
  return fold;
}

}  // namespace

ToolCall withoutTurnMarkers(ToolCall call) {
  call.arguments = withoutMarkers(call.arguments);
  return call;
}

std::string gapMarker(std::int64_t gapMs) {
  const double minutes = static_cast<double>(gapMs) / 60'000;
  if (const auto rounded = std::llround(minutes); rounded < 60)
    return fmt::format("— {} {} later —", rounded, rounded == 1 ? "minute" : "minutes");
  const double hours = static_cast<double>(std::llround(minutes / 60 * 2)) / 2;
  const auto figure = hours == std::trunc(hours) ? fmt::format("{:.0f}", hours) : fmt::format("{:.1f}", hours);
  return fmt::format("— {} {} later —", figure, hours == 1 ? "hour" : "hours");
}

std::vector<ChatMessage> project(const View& view, const Calendar& calendar) { return std::move(foldEvents(view, calendar).messages); }

std::vector<ChatMessage> projectNewCheckin(const View& view, const std::string& summary, const Calendar& calendar) {
  auto fold = foldEvents(view, calendar);
  fold.notice(view.asOfMs, summary);
  return std::move(fold.messages);
}

}  // namespace Layer3Conversation

namespace Layer3Request {

namespace {

std::vector<ChatMessage> withMeds(std::vector<ChatMessage> messages, const std::optional<std::string>& medsStatus) {
  if (medsStatus && !messages.empty()) messages.back().content += "\n\n" + *medsStatus;
  return messages;
}

}  // namespace

std::vector<ChatMessage> forReply(const Turn& turn, const Calendar& calendar) {
  return withMeds(Layer3Conversation::project({.events = turn.events, .floorMs = turn.floorMs, .asOfMs = turn.asOfMs}, calendar),
                  turn.medsStatus);
}

std::vector<ChatMessage> forCheckin(const Turn& turn, const std::string& summary, const Calendar& calendar) {
  return withMeds(
      Layer3Conversation::projectNewCheckin({.events = turn.events, .floorMs = turn.floorMs, .asOfMs = turn.asOfMs}, summary, calendar),
      turn.medsStatus);
}

}  // namespace Layer3Request

}  // namespace halvo
