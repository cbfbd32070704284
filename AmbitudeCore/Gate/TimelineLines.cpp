#include "AmbitudeCore/Gate/TimelineLines.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/OwnApplications.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/OutboundTitlePrivacy.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::TimelineLines {
namespace {
/// A program names itself, so its name is screen text too, though it stands outside quotes.
std::string shownName(std::string_view name) { return ScreenText::sanitize(name, ScreenText::titleCap); }

std::string_view trimmed(const std::optional<std::string>& text) { return text ? Text::trim(*text) : std::string_view(); }

std::string saying(const ClassifierTick& tick) {
  if (trimmed(tick.reason).empty()) return {};
  return ", saying: " + ScreenText::quoted(*tick.reason, ScreenText::reasonCap);
}

/// Nothing about the person can be read from it.
bool saysNothing(const TimedTick& timed) { return timed.isAbstained() || OwnApplications::contains(timed.tick->frontmostApp); }

std::string heldFor(std::int64_t durationMs, int samples) {
  if (samples == 1) return " — that was a single classifier sample";
  if (durationMs < 60'000) return fmt::format(" — that held under a minute ({} samples)", samples);
  const auto minutes = durationMs / 60'000;
  return fmt::format(" — that held {} minute{} ({} samples)", minutes, minutes == 1 ? "" : "s", samples);
}
}  // namespace

std::string userWords(std::string_view text) { return ScreenText::breakTurnMarkers(Text::newlinesToBlanks(text)); }

std::string cappedUserWords(std::string_view text) { return Text::capped(userWords(text), CoachGateTimeline::userTextCap); }

void appendStates(std::vector<Line>& lines, std::span<const TimedTick> ticks, const Calendar& calendar) {
  struct Run {
    std::string_view state;
    std::int64_t firstMs;
    int samples;
    std::size_t line;
  };
  std::optional<Run> run;
  for (const auto& timed : ticks) {
    if (!timed.tick->state || saysNothing(timed)) continue;
    if (run && run->state == *timed.tick->state) {
      ++run->samples;
      continue;
    }
    if (run) lines[run->line].text += heldFor(timed.tsMs - run->firstMs, run->samples);
    run = Run{*timed.tick->state, timed.tsMs, 1, lines.size()};
    lines.push_back({timed.tsMs, "at " + calendar.hourMinute(timed.tsMs) + " the classifier moved to " + shownName(*timed.tick->state) +
                                     saying(*timed.tick)});
  }
}

void appendTasks(std::vector<Line>& lines, std::span<const TimedTick> ticks, const Calendar& calendar) {
  std::string_view last;
  for (const auto& timed : ticks) {
    const auto task = trimmed(timed.tick->declaredTask);
    if (task.empty() || task == last) continue;
    last = task;
    lines.push_back(
        {timed.tsMs, "at " + calendar.hourMinute(timed.tsMs) + " their declared task became: \"" + userWords(task) + "\""});
  }
}

void appendDeclarations(std::vector<Line>& lines, const EventPointers& changes, std::int64_t startMs, std::int64_t nowMs,
                        const Calendar& calendar) {
  // The first change behind a moment: what replaced or cleared the declaration of that moment, if anything did.
  const auto nextChange = [&](std::int64_t ms) -> std::optional<std::int64_t> {
    const auto at = std::ranges::upper_bound(changes, ms, {}, &EventLogEvent::tsMs);
    return at == changes.end() ? std::nullopt : std::optional((*at)->tsMs);
  };
  std::vector<Line> clears, expiries;
  for (const auto* event : changes) {
    const auto at = event->tsMs;
    if (event->type == EventType::taskCleared) {
      if (at >= startMs) clears.push_back({at, "at " + calendar.hourMinute(at) + " they cleared their declared task"});
      continue;
    }
    const auto declaration = Declaration::decode(*event);
    if (!declaration) continue;
    const auto replacedAt = nextChange(at);
    const auto notes = cappedUserWords(declaration->notes);
    const auto end = declaration->endMs();
    if (end && *end >= startMs && *end <= nowMs && !(replacedAt && *replacedAt <= *end))
      expiries.push_back({*end, fmt::format("at {} the {} minutes they gave themselves at {} for \"{}\" ran out", calendar.hourMinute(*end),
                                            *declaration->horizonMinutes, calendar.hourMinute(at), notes)});
    if (replacedAt && at < startMs) continue;
    auto text = "at " + (at >= startMs ? calendar.hourMinute(at) : calendar.monthDayHourMinute(at)) + " they declared: \"" + notes + "\"";
    const auto until = trimmed(declaration->legacyUntil);
    if (end)
      text += fmt::format(", giving themselves {} minutes — until {}", *declaration->horizonMinutes, calendar.hourMinute(*end));
    else if (!until.empty())
      text += ", until " + userWords(until);
    else
      text += ", with no time limit";
    lines.push_back({at, std::move(text)});
  }
  // Equal times keep this order: declarations, clears, ends.
  std::ranges::move(clears, std::back_inserter(lines));
  std::ranges::move(expiries, std::back_inserter(lines));
}

void appendChat(std::vector<Line>& lines, const EventPointers& messages, const std::vector<std::int64_t>& checkinTimes,
                std::span<const TimedTick> ticks, const Calendar& calendar) {
  struct Message {
    const EventLogEvent* event;
    const std::string* text;
    bool fromCoach;
    bool answered = false;
  };
  std::vector<Message> chat;
  for (const auto* event : messages) {
    const auto* text = event->text("text");
    const auto* role = event->text("role");
    if (text && !text->empty() && role && (*role == "user" || *role == "coach")) chat.push_back({event, text, *role == "coach"});
  }
  const auto context = [&](std::int64_t ms) -> std::string {
    const auto behind = std::ranges::upper_bound(ticks, ms, {}, &TimedTick::tsMs);
    if (behind == ticks.begin() || trimmed(std::prev(behind)->tick->reason).empty()) return "no classifier context was available";
    return "the classifier had said: " + ScreenText::quoted(*std::prev(behind)->tick->reason, ScreenText::reasonCap);
  };
  for (std::size_t index = 0; index < chat.size(); ++index) {
    const auto& message = chat[index];
    const auto at = message.event->tsMs;
    if (!message.fromCoach) {
      if (message.answered) continue;
      lines.push_back({at, "at " + calendar.hourMinute(at) + " they said: \"" + cappedUserWords(*message.text) + "\""});
      continue;
    }
    // The first message behind one of the coach's is either the reply to it or the coach's next.
    std::string reply;
    if (index + 1 < chat.size() && !chat[index + 1].fromCoach) {
      chat[index + 1].answered = true;
      if (!Text::isBlank(*chat[index + 1].text)) reply = "\"" + cappedUserWords(*chat[index + 1].text) + "\"";
    }
    const bool isCheckin = index == 0 || chat[index - 1].fromCoach || std::ranges::binary_search(checkinTimes, at);
    if (isCheckin)
      lines.push_back({at, "the coach checked in at " + calendar.hourMinute(at) + " because " + context(at) + "; " +
                               (reply.empty() ? "they haven't replied" : "they replied: " + reply)});
    else
      lines.push_back(
          {at, "at " + calendar.hourMinute(at) + " the coach answered them" + (reply.empty() ? "" : "; they then said: " + reply)});
  }
}

std::optional<std::string> observation(std::span<const TimedTick> ticks, const Calendar& calendar) {
  if (ticks.empty() || !ticks.back().tick->state) return std::nullopt;
  const auto& newest = ticks.back();
  const auto at = calendar.hourMinute(newest.tsMs);
  const auto minutesSince = [&](std::int64_t ms) { return (newest.tsMs - ms) / 60'000; };
  if (saysNothing(newest)) {
    auto start = ticks.size() - 1;
    while (start > 0 && saysNothing(ticks[start - 1])) --start;
    auto line = "the classifier has no observation as of " + at +
                ": Lark's own window was frontmost, which says nothing about what they are doing, so it did not judge";
    if (const auto since = ticks[start].tsMs; since < newest.tsMs)
      line += fmt::format(" (since {}, {} minutes)", calendar.hourMinute(since), minutesSince(since));
    return line;
  }
  auto line = "the classifier's latest observation is from " + at + ": " + shownName(*newest.tick->state);
  if (const auto since = ticks[TimedTicks::stateRunStart(ticks)].tsMs; since < newest.tsMs)
    line += fmt::format(", unchanged since {} ({} minutes)", calendar.hourMinute(since), minutesSince(since));
  if (const auto app = trimmed(newest.tick->frontmostApp); !app.empty()) {
    line += ", " + shownName(app) + " frontmost";
    if (const auto title = trimmed(newest.tick->frontmostWindowTitle); !title.empty())
      line += " (window title " + ScreenText::quoted(OutboundTitlePrivacy::sanitize(title), ScreenText::titleCap) + ")";
  }
  return line + saying(*newest.tick);
}

std::optional<std::string> capture(const CaptureWindowSummary& summary, const Calendar& calendar) {
  if (summary.appShares.empty() && !summary.frontmostNow) return std::nullopt;
  const auto at = calendar.hourMinute(summary.asOfMs);
  std::vector<std::string> shares;
  for (const auto& share : summary.appShares)
    shares.push_back(fmt::format("{} {} min", shownName(share.app),
                                 share.minutes == std::trunc(share.minutes) ? fmt::format("{:.0f}", share.minutes)
                                                                            : fmt::format("{:.1f}", share.minutes)));
  auto line = fmt::format("raw capture (a sample every 1.5s, independent of the classifier), top 6 apps over the {} minutes to {}: {}",
                          summary.windowMinutes, at, shares.empty() ? "no app recorded" : Text::join(shares, ", "));
  if (const auto app = trimmed(summary.frontmostNow); !app.empty()) line += "; frontmost at " + at + " is " + shownName(app);
  return line;
}

}  // namespace halvo::TimelineLines
