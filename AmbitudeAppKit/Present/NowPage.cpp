#include "AmbitudeAppKit/Present/NowPage.h"

#include <algorithm>

#include "AmbitudeCore/Folds/Declaration.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Intention/CurrentIntention.h"

namespace halvo {

namespace {

constexpr std::int64_t verdictIsFreshMs = 600'000;
/// A window that ends further away than this was asked for without an end.
constexpr std::int64_t endlessMs = 50LL * 365 * 86'400'000;

std::string clockOf(const DeclaredIntentionDetails& details, std::int64_t nowMs, const Calendar& calendar, bool& isOverdue) {
  std::string words;
  if (details.declaredAtMs)
    words = tr("since {} ({})", calendar.hourMinute(*details.declaredAtMs),
                        Durations::spoken(std::max<std::int64_t>(0, nowMs - *details.declaredAtMs)));
  const auto until = match(
      EstimateReading::read(details, calendar), [](const EstimateReading::None&) { return std::string(); },
      [](const EstimateReading::Unreadable& said) { return said.text; }, [](const EstimateReading::Rejected& said) { return said.text; },
      [&](const EstimateReading::At& end) {
        isOverdue = end.ms < nowMs;
        const auto at = calendar.hourMinute(end.ms), by = Durations::spoken(std::abs(end.ms - nowMs));
        return isOverdue ? tr("until {} ({} over)", at, by) : tr("until {} ({} left)", at, by);
      });
  return words + (words.empty() || until.empty() ? "" : ", ") + until;
}

std::string verdictOf(const DayStore::Rows& rows, std::int64_t nowMs) {
  if (rows.ticks.empty()) return {};
  const auto& tick = rows.ticks.back();
  const auto ms = tick.atMs();
  // One about what was declared before says nothing about now.
  if (const auto* declared = LatestDeclaration::event(rows.events, nowMs); declared && ms && *ms < declared->tsMs) return {};
  const auto state = tick.state.value_or("");
  if (!ms || nowMs - *ms > verdictIsFreshMs || (state != "ON_TASK" && state != "NOT_ALIGNED")) return {};
  const auto when = nowMs - *ms < 60'000 ? tr("just now") : tr("{} ago", Durations::spoken(nowMs - *ms));
  return (state == "ON_TASK" ? tr("On task {}", when) : tr("Off task {}", when)) + (tick.reason ? ": " + *tick.reason : "");
}

}  // namespace

NowPage NowPage::of(const Moment& moment) {
  NowPage page;
  const auto body = moment.taskBody.value_or("");
  if (const auto intention = CurrentIntention::parse(body)) {
    page.task = intention->task;
    page.why = intention->why.value_or("");
    if (const auto details = DeclaredIntentionDetails::parse(body, moment.calendar))
      page.clock = clockOf(*details, moment.nowMs, moment.calendar, page.isOverdue);
  }
  const auto window = UserQuietWindow::latest(moment.rows.events, moment.nowMs);
  if (window && window->isInForce(moment.nowMs))
    page.quiet = Quiet{window->requestedMs, Durations::quietUntil(*window, moment.nowMs, moment.calendar)};
  page.verdict = verdictOf(moment.rows, moment.nowMs);
  page.day = DayStrip::of(moment.rows, moment.nowMs, moment.calendar);
  return page;
}

namespace Durations {

std::string spoken(std::int64_t ms) {
  const auto minutes = ms / 60'000;
  if (minutes < 1) return tr("under a minute");
  if (minutes < 60) return tr("{} min", minutes);
  const auto hours = minutes / 60;
  if (hours >= 48) return tr("{} days", hours / 24);
  return minutes % 60 == 0 ? tr("{} h", hours) : tr("{} h {} min", hours, minutes % 60);
}

std::string quietUntil(const UserQuietWindow& window, std::int64_t nowMs, const Calendar& calendar) {
  const auto end = window.effectiveEndMs();
  if (end - nowMs > endlessMs) return tr("Quiet until you say otherwise");
  return tr("Quiet until {}", end - nowMs > 12 * 3'600'000LL ? calendar.monthDayHourMinute(end) : calendar.hourMinute(end));
}

std::string label(UserQuietDuration duration) {
  return tr(rawValue(duration));
}

}  // namespace Durations

}  // namespace halvo
