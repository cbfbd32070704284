#include "AmbitudeAppKit/Present/MemoryPage.h"

#include <algorithm>

#include "AmbitudeAppKit/Stores/Corrections.h"
#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeCore/Memory/ConsolidationHealthPresentation.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "AmbitudeCore/Memory/StandingComparison.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

std::string datesOf(const std::vector<std::int64_t>& times, const Calendar& calendar) {
  constexpr std::size_t shown = 3;
  std::string text;
  for (std::size_t i = 0; i < times.size() && i < shown; ++i) text += (i ? "; " : "") + calendar.monthDayHourMinute(times[i]);
  return times.size() > shown ? tr("{} and {} more", text, times.size() - shown) : text;
}

std::string originOf(const MemoryFact& fact, const std::vector<MemoryFact>& unsupported, const Calendar& calendar) {
  const auto how = fact.provenance == MemoryFactProvenance::asserted ? tr("you said so") : tr("concluded, not said");
  const auto dates = datesOf(fact.sourceEventTsMs, calendar);
  const bool isUnsupported = std::ranges::find(unsupported, fact) != unsupported.end();
  return how + (dates.empty() ? "" : ", " + dates) + (isUnsupported ? tr("; no digest holds it") : "");
}

std::string originOf(const std::string& lesson, const std::vector<PeriodDigest>& digests, const Calendar& calendar) {
  std::vector<std::int64_t> starts;
  for (const auto& digest : digests)
    if (std::ranges::find(digest.lessons, lesson) != digest.lessons.end()) starts.push_back(digest.periodStartTsMs);
  return starts.empty() ? tr("drawn together from several periods") : tr("from the period of {}", datesOf(starts, calendar));
}

std::string howOf(const CoachCorrection& correction, std::int64_t nowMs, const Calendar& calendar) {
  auto how = correction.isStanding()        ? tr("standing")
             : !correction.isInForce(nowMs) ? tr("over")
                                            : tr("until {}", calendar.monthDayHourMinute(*correction.expiresAtMs));
  if (correction.scope) how += *correction.scope == CoachCorrection::Scope::whetherToSpeak ? tr(", whether to speak") : tr(", what to say");
  if (!correction.isPending()) how += tr(", taken into memory");
  return tr("{}, said {}", how, calendar.monthDayHourMinute(correction.atMs));
}

std::string statusOf(MemoryThreadStatus status) {
  switch (status) {
    case MemoryThreadStatus::active: return tr("active");
    case MemoryThreadStatus::dormant: return tr("dormant");
    case MemoryThreadStatus::done: return tr("done");
    case MemoryThreadStatus::dropped: return tr("dropped");
  }
  return {};
}

/// The notice about a memory that does not come about, when there is one.
std::string noticeOf(const std::optional<StandingMemory>& memory, bool isDeveloper, const std::filesystem::path& root) {
  const auto events = EventSearch::eventsThat([](EventLogEvent& event) { return event.type.starts_with("memory_consolidation_"); },
                                              DataPaths::events(root));
  namespace Health = ConsolidationHealthPresentation;
  const auto trouble = Health::trouble(events, memory ? std::optional(memory->regeneratedAtTsMs) : std::nullopt);
  return trouble ? Health::bubbleText(*trouble, isDeveloper).value_or("") : std::string();
}

}  // namespace

std::string MemoryPage::meaningOfForgetting() {
  return tr(
      "Forgetting covers everything up to now: what was learned of you, and what you told Lark about how to behave.\n"
      "From the next turn on neither Lark nor the nightly job uses any of it. What comes after now is remembered as usual.\n"
      "No file is deleted: the digests and the logs stay under the data root until you remove them. This can't be taken back here.");
}

MemoryPage MemoryPage::read(const std::filesystem::path& root, std::int64_t nowMs, const Calendar& calendar) {
  MemoryPage page;
  page.preferences = CoachPreferencesStore::read(root);
  const auto wipe = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(root));
  if (wipe) page.forgotten = tr("everything before {} is forgotten", calendar.monthDayHourMinute(*wipe));
  const auto memory = MemoryWipeFilter::standing(MemoryStore::readStanding(root), wipe);
  page.notice = noticeOf(memory, page.preferences.developerModeEnabled, root);
  for (const auto& correction : Corrections::list(root))
    page.corrections.push_back({correction.atMs, correction.text, howOf(correction, nowMs, calendar)});
  if (!memory) return page;
  const auto digests = MemoryWipeFilter::digests(MemoryStore::readAllDigests(root), wipe);
  page.asOf = tr("as of {}, from {} period(s)", calendar.monthDayHourMinute(memory->regeneratedAtTsMs), memory->digestCount);
  if (memory->salvaged) page.unorganized = memory->salvageDetail.value_or(tr("the last reply could not be used"));
  for (const auto& thread : memory->threads)
    page.threads.push_back({thread.name, statusOf(thread.status), thread.notes});
  const auto unsupported = MemoryConsolidation::factsUnsupportedByDigests(*memory, digests);
  for (const auto& fact : memory->facts) page.facts.push_back({fact.text, originOf(fact, unsupported, calendar)});
  for (const auto& lesson : memory->lessons) page.lessons.push_back({lesson, originOf(lesson, digests, calendar)});
  return page;
}

}  // namespace halvo
