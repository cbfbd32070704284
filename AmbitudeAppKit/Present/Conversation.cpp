#include "AmbitudeAppKit/Present/Conversation.h"

#include <algorithm>
#include <map>

#include "AmbitudeAppKit/Present/NowPage.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachServiceStatus.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/CoachUIState.h"
#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

using Entry = Conversation::Entry;
using Kind = Entry::Kind;

constexpr std::string_view optionsOffered = "option_card_offered", projectLinked = "app_project_link_asserted";

std::string textOf(const EventLogEvent& event, std::string_view key) {
  const auto* text = event.text(key);
  return text ? *text : std::string();
}

Entry message(const EventLogEvent& event) {
  if (textOf(event, "role") == "user") return {.tsMs = event.tsMs, .kind = Kind::you, .text = textOf(event, "text")};
  Entry entry{.tsMs = event.tsMs, .kind = Kind::lark, .text = textOf(event, "text"), .thinking = textOf(event, "thinking")};
  if (const auto cause = AppChatEvents::fallbackCause(event))
    entry.servedBy = disclosureLine(*cause, event.text("served_by") ? textOf(event, "served_by") : tr("another model"));
  return entry;
}

/// Only the coach's tool writes "notes"; a person's own words stand under "task".
bool isByLark(const EventLogEvent& declared) { return declared.text("notes") != nullptr; }

Entry declaration(const EventLogEvent& event, const Declaration& declared, bool isInForce) {
  auto words = declared.notes;
  if (declared.horizonMinutes) words = tr("{} for {}", words, Durations::spoken(*declared.horizonMinutes * 60'000LL));
  if (declared.legacyUntil) words = tr("{} until {}", words, *declared.legacyUntil);
  if (!isByLark(event)) return {.tsMs = event.tsMs, .kind = Kind::declared, .text = tr("You declared: {}", words)};
  Entry entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = tr("Noted as your intention: {}", words)};
  if (isInForce) entry.undo = Conversation::TakeBackDeclaration{event.tsMs};
  return entry;
}

/// What is needed to say what of the past still holds.
struct Standing {
  const EventLogEvent* declared = nullptr;  ///< the newest declaration or clear
  const EventLogEvent* offered = nullptr;   ///< the options that wait for an answer
  std::optional<UserQuietWindow> quiet = {};
  std::map<const EventLogEvent*, CoachCorrection> corrections = {};  ///< by the row that recorded them
};

/// Each row's correction has the time that is its own in the corrections' file: of rows of one turn it is not the row's.
std::map<const EventLogEvent*, CoachCorrection> correctionsOf(std::span<const EventLogEvent> events) {
  std::map<const EventLogEvent*, CoachCorrection> found;
  auto all = CoachCorrectionsLog::fromEvents(events);
  auto next = all.begin();
  for (const auto& event : events)
    if (next != all.end() && event.type == EventType::correctionRecorded && Text::trim(textOf(event, "text")) == next->text)
      found.emplace(&event, std::move(*next++));
  return found;
}

Standing standingOf(const Conversation::Past& past) {
  Standing standing{.declared = LatestDeclaration::event(past.events, past.nowMs),
                    .quiet = UserQuietWindow::latest(past.events, past.nowMs),
                    .corrections = correctionsOf(past.events)};
  for (const auto& event : past.events) {
    if (event.type == optionsOffered) standing.offered = &event;
    if (event.type == EventType::chatMessage && textOf(event, "role") == "user") standing.offered = nullptr;
  }
  return standing;
}

std::optional<Entry> correction(const CoachCorrection& said, const Conversation::Past& past) {
  Entry entry{.tsMs = said.atMs, .kind = Kind::effect, .text = tr("Lark will keep in mind: {}", said.text)};
  const auto isSame = [&](const CoachCorrection& kept) { return kept.atMs == said.atMs && kept.text == said.text; };
  const bool isKept = !past.corrections || std::ranges::any_of(*past.corrections, isSame);
  if (isKept && said.isInForce(past.nowMs)) entry.undo = Conversation::ForgetCorrection{said.atMs};
  return entry;
}

Entry options(const EventLogEvent& event, bool isWaiting) {
  Entry entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = tr("Lark offers: {}", textOf(event, "title"))};
  const auto* offered = event.detail.find("options");
  if (!isWaiting || !offered || !offered->arrayValue()) return entry;
  for (const auto& option : *offered->arrayValue()) {
    const auto *label = option.find("label"), *hint = option.find("hint");
    if (label && label->stringValue() && !Text::isBlank(*label->stringValue()))
      entry.answers.push_back({*label->stringValue(), hint && hint->stringValue() ? *hint->stringValue() : ""});
  }
  return entry;
}

std::optional<Entry> entryOf(const EventLogEvent& event, const Standing& standing, const Conversation::Past& past) {
  const auto nowMs = past.nowMs;
  if (event.type == EventType::chatMessage) {
    const auto role = textOf(event, "role");
    return role == "user" || role == "coach" ? std::optional(message(event)) : std::nullopt;
  }
  if (const auto declared = Declaration::decode(event)) return declaration(event, *declared, &event == standing.declared);
  if (event.type == EventType::taskCleared) return Entry{.tsMs = event.tsMs, .kind = Kind::declared, .text = tr("Declaration cleared")};
  if (event.type == EventType::userQuietRequested) {
    const auto window = UserQuietWindow::latest(std::span(&event, 1), event.tsMs);
    if (!window) return std::nullopt;
    Entry entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = Durations::quietUntil(*window, event.tsMs, past.calendar)};
    const auto& latest = standing.quiet;
    if (latest && latest->requestedMs == event.tsMs && latest->isInForce(nowMs)) entry.undo = Conversation::EndQuiet{event.tsMs};
    return entry;
  }
  if (event.type == EventType::userQuietCancelled) return Entry{.tsMs = event.tsMs, .kind = Kind::effect, .text = tr("Quiet is over")};
  if (event.type == EventType::correctionRecorded) {
    const auto said = standing.corrections.find(&event);
    return said == standing.corrections.end() ? std::nullopt : correction(said->second, past);
  }
  if (event.type == optionsOffered) return options(event, &event == standing.offered);
  if (event.type == projectLinked)
    return Entry{.tsMs = event.tsMs,
                 .kind = Kind::effect,
                 .text = tr("Noted: {} is part of {}", textOf(event, "app"), textOf(event, "project"))};
  if (auto told = CoachServiceStatus::displayText(event))
    return Entry{.tsMs = event.tsMs,
                 .kind = event.type == EventType::coachServiceRestored ? Kind::effect : Kind::notice,  // good news is no warning
                 .text = std::move(*told)};
  if (const auto* told = event.text(AppChatEvents::turnFailedUserReasonKey))
    return Entry{.tsMs = event.tsMs, .kind = Kind::notice, .text = tr(*told)};
  return std::nullopt;
}

bool isSameDay(std::int64_t a, std::int64_t b, const Calendar& calendar) {
  const auto x = calendar.fields(a), y = calendar.fields(b);
  return x.year == y.year && x.month == y.month && x.day == y.day;
}

/// "Mar 4" of "Mar 4, 9:15".
std::string dayName(std::int64_t ms, std::int64_t nowMs, const Calendar& calendar) {
  if (isSameDay(ms, nowMs, calendar)) return tr("Today");
  if (isSameDay(ms, nowMs - 86'400'000, calendar)) return tr("Yesterday");
  const auto text = calendar.monthDayHourMinute(ms);
  return text.substr(0, text.find(','));
}

}  // namespace

Conversation Conversation::of(const Past& past) {
  const auto& [events, fromMs, corrections, nowMs, calendar] = past;
  Conversation conversation;
  const auto standing = standingOf(past);
  for (const auto& event : events) {
    if (event.type == EventType::uiOpened) conversation.openedMs = std::max(conversation.openedMs, event.tsMs);
    auto entry = event.tsMs >= fromMs ? entryOf(event, standing, past) : std::nullopt;
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
