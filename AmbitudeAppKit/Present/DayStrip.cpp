#include "AmbitudeAppKit/Present/DayStrip.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>

#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Signals/ActivityTimeline.h"

namespace halvo {

namespace {

constexpr std::int64_t verdictHoldsMs = 600'000;
constexpr std::int64_t shortestSpanMs = 5'000;  ///< a glance at another app is not worth a block
constexpr int dayBeginsAtHour = 4;

using Blocks = std::vector<DayStrip::Block>;

/// An app has the same colour every day, unless another of this day was there first with it: then the next one that is free.
class AppSlots {
 public:
  int of(const std::string& app) {
    const auto [known, isNew] = slots_.try_emplace(app, ActivityTimeline::colorSlot(app, DayStrip::appSlots));
    if (isNew && slots_.size() <= DayStrip::appSlots) {
      while (isTaken_.at(static_cast<std::size_t>(known->second))) known->second = (known->second + 1) % DayStrip::appSlots;
      isTaken_[static_cast<std::size_t>(known->second)] = true;
    }
    return known->second;
  }

 private:
  std::map<std::string, int> slots_;
  std::array<bool, DayStrip::appSlots> isTaken_{};
};

Blocks appBlocks(const DayStore::Rows& rows, const ActivityTimeline::Range& range) {
  Blocks blocks;
  AppSlots slots;
  for (const auto& span : ActivityTimeline::appSpans(rows.samples, range)) {
    const bool isLocked = Text::equalsIgnoringCase(span.value, "loginwindow");
    blocks.push_back({span.fromMs, span.toMs, isLocked ? tr("screen locked") : span.value,
                      isLocked ? DayStrip::locked : slots.of(span.value)});
  }
  return blocks;
}

Blocks presenceBlocks(const DayStore::Rows& rows, const ActivityTimeline::Range& range) {
  Blocks blocks;
  for (const auto& span : ActivityTimeline::presenceSpans(rows.samples, range)) {
    using enum ActivityTimeline::Presence;
    const auto label = span.value == active ? tr("at the keyboard") : span.value == idle ? tr("still") : tr("away");
    blocks.push_back({span.fromMs, span.toMs, label, static_cast<int>(span.value)});
  }
  return blocks;
}

DayStrip::Block verdictBlock(const ClassifierTick& tick, std::int64_t ms) {
  const auto state = tick.state.value_or("");
  if (state == "ON_TASK") return {ms, ms, tr("on task"), DayStrip::onTask, tick.reason.value_or("")};
  if (state == "NOT_ALIGNED") return {ms, ms, tr("off task"), DayStrip::notAligned, tick.reason.value_or("")};
  if (state == "IDLE") return {ms, ms, tr("nobody there"), DayStrip::idle, tick.reason.value_or("")};
  return {ms, ms, state == "NO_TASK" ? tr("nothing declared") : tr("not judged"), DayStrip::other, tick.reason.value_or("")};
}

Blocks verdictBlocks(const DayStore::Rows& rows, std::int64_t fromMs, std::int64_t toMs) {
  Blocks blocks;
  for (const auto& tick : rows.ticks) {
    const auto ms = tick.atMs();
    if (!ms || *ms < fromMs || *ms > toMs) continue;
    if (!blocks.empty()) blocks.back().toMs = std::min(*ms, blocks.back().toMs);
    auto block = verdictBlock(tick, *ms);
    block.toMs = std::min(*ms + verdictHoldsMs, toMs);
    // A run of one verdict is one block as long as its sentence is the same.
    const bool goesOn = !blocks.empty() && blocks.back().toMs == *ms && blocks.back().slot == block.slot && blocks.back().detail == block.detail;
    if (goesOn)
      blocks.back().toMs = block.toMs;
    else
      blocks.push_back(std::move(block));
  }
  return blocks;
}

/// The check-in's own words come in the message behind it.
std::string wordsOfCheckIn(std::span<const EventLogEvent> events, std::size_t at) {
  constexpr std::int64_t soonMs = 120'000;
  for (auto i = at; i < events.size() && events[i].tsMs <= events[at].tsMs + soonMs; ++i)
    if (const auto* role = events[i].text("role"); events[i].type == EventType::chatMessage && role && *role == "coach")
      if (const auto* text = events[i].text("text")) return *text;
  return {};
}

std::vector<DayStrip::Mark> marksOf(std::span<const EventLogEvent> events, std::int64_t fromMs, std::int64_t toMs) {
  std::vector<DayStrip::Mark> marks;
  using Kind = DayStrip::Mark::Kind;
  for (std::size_t i = 0; i < events.size(); ++i) {
    const auto& event = events[i];
    if (event.tsMs < fromMs || event.tsMs > toMs) continue;
    if (event.type == EventType::coachCheckin) marks.push_back({event.tsMs, Kind::checkIn, wordsOfCheckIn(events, i)});
    if (event.type == EventType::taskCleared) marks.push_back({event.tsMs, Kind::cleared});
    if (const auto declared = Declaration::decode(event)) marks.push_back({event.tsMs, Kind::declared, declared->notes});
    if (event.type == EventType::userQuietRequested) marks.push_back({event.tsMs, Kind::quiet});
    if (event.type == EventType::userQuietCancelled) marks.push_back({event.tsMs, Kind::quietOver});
  }
  return marks;
}

/// The latest time at or before `nowMs` at which a day began. A day may have 23 hours or 25.
std::int64_t beginOfDay(std::int64_t nowMs, const Calendar& calendar) {
  const auto at = [&](const Calendar::Fields& day, int hour) { return calendar.instant(day.year, day.month, day.day, hour); };
  const auto today = calendar.fields(nowMs);
  const auto begin = at(today, dayBeginsAtHour);
  return begin <= nowMs ? begin : at(calendar.fields(at(today, 12) - 86'400'000), dayBeginsAtHour);
}

const DayStrip::Block* blockAt(const Blocks& blocks, std::int64_t ms) {
  const auto behind = std::upper_bound(blocks.begin(), blocks.end(), ms, [](std::int64_t at, const DayStrip::Block& b) { return at < b.fromMs; });
  if (behind == blocks.begin() || ms >= std::prev(behind)->toMs) return nullptr;
  return &*std::prev(behind);
}

std::string described(const DayStrip::Mark& mark) {
  using Kind = DayStrip::Mark::Kind;
  switch (mark.kind) {
    case Kind::checkIn: return mark.words.empty() ? tr("Lark asked") : tr("Lark: {}", mark.words);
    case Kind::declared: return tr("declared: {}", mark.words);
    case Kind::cleared: return tr("declaration cleared");
    case Kind::quiet: return tr("quiet began");
    case Kind::quietOver: return tr("quiet ended");
  }
  return {};
}

}  // namespace

DayStrip DayStrip::of(const DayStore::Rows& rows, std::int64_t nowMs, const Calendar& calendar) {
  DayStrip strip;
  strip.fromMs = beginOfDay(nowMs, calendar);
  strip.toMs = nowMs;
  const ActivityTimeline::Range range{.fromMs = strip.fromMs, .toMs = strip.toMs, .minSpanMs = shortestSpanMs};
  strip.apps = appBlocks(rows, range);
  strip.presence = presenceBlocks(rows, range);
  strip.verdicts = verdictBlocks(rows, strip.fromMs, strip.toMs);
  strip.marks = marksOf(rows.events, strip.fromMs, strip.toMs);
  // The picture begins with the first thing that happened.
  auto firstMs = nowMs;
  for (const auto* lane : {&strip.apps, &strip.presence, &strip.verdicts})
    if (!lane->empty()) firstMs = std::min(firstMs, lane->front().fromMs);
  if (!strip.marks.empty()) firstMs = std::min(firstMs, strip.marks.front().ms);
  strip.fromMs = std::max(strip.fromMs, firstMs);
  return strip;
}

std::vector<std::string> DayStrip::explain(std::int64_t ms, std::int64_t reachMs, const Calendar& calendar) const {
  std::vector<std::string> lines{calendar.hourMinute(ms)};
  const auto* app = blockAt(apps, ms);
  const auto* here = blockAt(presence, ms);
  if (app || here) lines.push_back((app ? app->label : tr("no app known")) + (here ? ", " + here->label : ""));
  if (const auto* verdict = blockAt(verdicts, ms)) lines.push_back(verdict->label + (verdict->detail.empty() ? "" : ": " + verdict->detail));
  for (const auto& mark : marks)
    if (std::abs(mark.ms - ms) <= reachMs) lines.push_back(described(mark));
  if (lines.size() == 1) lines.push_back(tr("nothing was recorded"));
  return lines;
}

}  // namespace halvo
