#include "AmbitudeAppKit/Present/Conversation.h"

#include <algorithm>

#include <fmt/format.h>

#include "AmbitudeAppKit/Present/NowPage.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachServiceStatus.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/CoachUIState.h"
#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Folds/EventTypes.h"

namespace halvo {

namespace {

using Entry = Conversation::Entry;
using Kind = Entry::Kind;

std::string textOf(const EventLogEvent& event, std::string_view key) {
  const auto* text = event.text(key);
  return text ? *text : std::string();
}

Entry message(const EventLogEvent& event) {
  if (textOf(event, "role") == "user") return {.tsMs = event.tsMs, .kind = Kind::you, .text = textOf(event, "text")};
  Entry entry{.tsMs = event.tsMs, .kind = Kind::lark, .text = textOf(event, "text"), .thinking = textOf(event, "thinking")};
  if (const auto cause = AppChatEvents::fallbackCause(event))
    entry.servedBy = disclosureLine(*cause, event.text("served_by") ? textOf(event, "served_by") : "another model");
  return entry;
}

/// Only the coach's tool writes "notes"; a person's own words stand under "task".
bool isByLark(const EventLogEvent& declared) { return declared.text("notes") != nullptr; }

Entry declaration(const EventLogEvent& event, const Declaration& declared, bool isInForce) {
  auto words = declared.notes;
  if (declared.horizonMinutes) words += fmt::format(" for {}", Durations::spoken(*declared.horizonMinutes * 60'000LL));
  if (declared.legacyUntil) words += " until " + *declared.legacyUntil;
  if (!isByLark(event)) return {.tsMs = event.tsMs, .kind = Kind::declared, .text = "You declared: " + words};
  Entry entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = "Noted as your intention: " + words};
  if (isInForce) entry.undo = Conversation::ClearDeclaration{};
  return entry;
}

/// What is needed to say what of the past still holds.
struct Standing {
  std::int64_t declaredMs = -1;  ///< the newest declaration or clear
  std::optional<UserQuietWindow> quiet = {};
};

std::optional<Entry> entryOf(const EventLogEvent& event, const Standing& standing, std::int64_t nowMs, const Calendar& calendar) {
  if (event.type == EventType::chatMessage) {
    const auto role = textOf(event, "role");
    return role == "user" || role == "coach" ? std::optional(message(event)) : std::nullopt;
  }
  if (const auto declared = Declaration::decode(event)) return declaration(event, *declared, event.tsMs == standing.declaredMs);
  if (event.type == EventType::taskCleared) return Entry{.tsMs = event.tsMs, .kind = Kind::declared, .text = "Declaration cleared"};
  if (event.type == EventType::userQuietRequested) {
    const auto window = UserQuietWindow::latest(std::span(&event, 1), event.tsMs);
    if (!window) return std::nullopt;
    Entry entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = Durations::quietUntil(*window, event.tsMs, calendar)};
    const auto& latest = standing.quiet;
    if (latest && latest->requestedMs == event.tsMs && latest->isInForce(nowMs)) entry.undo = Conversation::EndQuiet{event.tsMs};
    return entry;
  }
  if (event.type == EventType::userQuietCancelled) return Entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = "Quiet is over"};
  if (event.type == EventType::correctionRecorded) {
    const auto kept = CoachCorrectionsLog::fromEvents(std::span(&event, 1));
    if (kept.empty()) return std::nullopt;
    return Entry{.tsMs = event.tsMs,
                 .kind = Kind::effect,
                 .text = "Lark will keep in mind: " + kept[0].text,
                 .undo = Conversation::ForgetCorrection{kept[0].atMs}};
  }
  if (auto told = CoachServiceStatus::displayText(event)) return Entry{.tsMs = event.tsMs, .kind = Kind::notice, .text = std::move(*told)};
  if (const auto* told = event.text(AppChatEvents::turnFailedUserReasonKey))
    return Entry{.tsMs = event.tsMs, .kind = Kind::notice, .text = *told};
  return std::nullopt;
}

bool isSameDay(std::int64_t a, std::int64_t b, const Calendar& calendar) {
  const auto x = calendar.fields(a), y = calendar.fields(b);
  return x.year == y.year && x.month == y.month && x.day == y.day;
}

/// "Mar 4" of "Mar 4, 9:15".
std::string dayName(std::int64_t ms, std::int64_t nowMs, const Calendar& calendar) {
  if (isSameDay(ms, nowMs, calendar)) return "Today";
  if (isSameDay(ms, nowMs - 86'400'000, calendar)) return "Yesterday";
  const auto text = calendar.monthDayHourMinute(ms);
  return text.substr(0, text.find(','));
}

}  // namespace

Conversation Conversation::of(std::span<const EventLogEvent> events, std::int64_t nowMs, const Calendar& calendar) {
  Conversation conversation;
  Standing standing;
  if (const auto* newest = LatestDeclaration::event(events, nowMs)) standing.declaredMs = newest->tsMs;
  standing.quiet = UserQuietWindow::latest(events, nowMs);
  for (const auto& event : events) {
    if (event.type == EventType::uiOpened) conversation.openedMs = std::max(conversation.openedMs, event.tsMs);
    auto entry = entryOf(event, standing, nowMs, calendar);
    if (!entry) continue;
    auto& entries = conversation.entries;
    if (entries.empty() || !isSameDay(entries.back().tsMs, entry->tsMs, calendar))
      entries.push_back({.tsMs = entry->tsMs, .kind = Kind::day, .text = dayName(entry->tsMs, nowMs, calendar)});
    entries.push_back(std::move(*entry));
  }
  conversation.isOpen = CoachUIState::isOpen(events);
  conversation.wantsAnswer = UIOpenRequestedTrailingState::shouldPresentOnColdReplay(events);
  return conversation;
}

}  // namespace halvo
