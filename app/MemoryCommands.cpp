#include "app/MemoryCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "AmbitudeCore/Memory/ConsolidationHealthPresentation.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "AmbitudeCore/Memory/StandingComparison.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::MemoryCommands {

namespace {

using CommandOutput::fail;
using CommandOutput::print;
using CommandOutput::withDataRoot;

std::string datesOf(const std::vector<std::int64_t>& times, const Calendar& calendar) {
  constexpr std::size_t shown = 3;
  std::string text;
  for (std::size_t i = 0; i < times.size() && i < shown; ++i) text += (i ? "; " : "") + calendar.monthDayHourMinute(times[i]);
  return times.size() > shown ? text + fmt::format(" and {} more", times.size() - shown) : text;
}

std::string originOf(const MemoryFact& fact, const std::vector<MemoryFact>& unsupported, const Calendar& calendar) {
  const auto* how = fact.provenance == MemoryFactProvenance::asserted ? "you said so" : "concluded, not said";
  const auto dates = datesOf(fact.sourceEventTsMs, calendar);
  const bool isUnsupported = std::ranges::find(unsupported, fact) != unsupported.end();
  return std::string(how) + (dates.empty() ? "" : ", " + dates) + (isUnsupported ? "; no digest holds it" : "");
}

std::string originOf(const std::string& lesson, const std::vector<PeriodDigest>& digests, const Calendar& calendar) {
  std::vector<std::int64_t> starts;
  for (const auto& digest : digests)
    if (std::ranges::find(digest.lessons, lesson) != digest.lessons.end()) starts.push_back(digest.periodStartTsMs);
  return starts.empty() ? "drawn together from several periods" : "from the period of " + datesOf(starts, calendar);
}

/// The notice about a memory that does not come about, when there is one.
void printTrouble(const std::optional<StandingMemory>& memory) {
  const auto events =
      EventSearch::eventsThat([](EventLogEvent& event) { return event.type.starts_with("memory_consolidation_"); }, DataPaths::events());
  namespace Health = ConsolidationHealthPresentation;
  const auto trouble = Health::trouble(events, memory ? std::optional(memory->regeneratedAtTsMs) : std::nullopt);
  const auto notice =
      trouble ? Health::bubbleText(*trouble, CoachPreferencesStore::read(DataPaths::dataRoot()).developerModeEnabled) : std::nullopt;
  if (notice) print(TerminalText::oneLine(*notice));
}

void printMemory(const StandingMemory& memory, const std::vector<PeriodDigest>& digests, const Calendar& calendar) {
  using TerminalText::oneLine;
  print(fmt::format("as of {}, from {} period(s)", calendar.monthDayHourMinute(memory.regeneratedAtTsMs), memory.digestCount));
  if (memory.salvaged) print("unorganized: " + oneLine(memory.salvageDetail.value_or("the last reply could not be used")));
  print("\nthreads:");
  for (const auto& thread : memory.threads)
    print(fmt::format("  {} [{}]{}", oneLine(thread.name), rawValue(thread.status),
                      thread.notes.empty() ? "" : ": " + oneLine(thread.notes)));
  const auto unsupported = MemoryConsolidation::factsUnsupportedByDigests(memory, digests);
  print("\nfacts:");
  for (const auto& fact : memory.facts) print(fmt::format("  {}  ({})", oneLine(fact.text), originOf(fact, unsupported, calendar)));
  print("\nlessons:");
  for (const auto& lesson : memory.lessons) print(fmt::format("  {}  ({})", oneLine(lesson), originOf(lesson, digests, calendar)));
}

constexpr const char* meaning =
    "Forgetting covers everything up to now: what was learned of you, and what you told Lark about how to behave.\n"
    "From the next turn on neither Lark nor the nightly job uses any of it. What comes after now is remembered as usual.\n"
    "No file is deleted: the digests and the logs stay under the data root until you remove them. This can't be taken back here.";

}  // namespace

int show() {
  return withDataRoot([] {
    const auto root = DataPaths::dataRoot();
    const auto calendar = Calendar::local();
    const auto wipe = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(root));
    const auto memory = MemoryWipeFilter::standing(MemoryStore::readStanding(root), wipe);
    if (wipe) print("everything before " + calendar.monthDayHourMinute(*wipe) + " is forgotten");
    printTrouble(memory);
    if (memory)
      printMemory(*memory, MemoryWipeFilter::digests(MemoryStore::readAllDigests(root), wipe), calendar);
    else
      print("nothing is remembered yet");
    if (!CoachPreferencesStore::read(root).standingMemoryEnabled) print("memory is switched off: Lark is not shown any of it");
    return 0;
  });
}

int forget(bool isSure) {
  return withDataRoot([&] {
    print(meaning);
    if (!isSure) {
      std::fputs("Type \"forget\" to go on: ", stdout);
      std::fflush(stdout);
      std::string answer;
      if (!std::getline(std::cin, answer) || Text::trim(answer) != "forget") return fail("nothing was forgotten");
    }
    MemoryWipeLog::request(Clock::system().nowMs(), MemoryWipeLog::defaultURL(DataPaths::dataRoot()));
    print("forgotten");
    return 0;
  });
}

}  // namespace halvo::MemoryCommands
