#include "agents/Consolidate/ConsolidationLogRead.h"

#include <algorithm>
#include <array>
#include <limits>
#include <system_error>

#include "AmbitudeCore/Coach/CoachOutputAudit.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Memory/MemoryConsolidationEvents.h"
#include "AmbitudeCore/Memory/PeriodRendering.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::ConsolidationLogRead {

namespace {

bool isOfAllDays(std::string_view type) {
  return type == EventType::correctionRecorded || type == MemoryConsolidationEvents::deferredStartedType ||
         type == MemoryConsolidationEvents::deferredEndedType;
}

/// Leaves of a row's detail what a digest's line is made from: a year of rows has to fit in memory.
void cutDown(EventLogEvent& event) {
  static constexpr std::array keys{"role", "text", "task", "notes", "app", "project"};
  JSONObject words;
  for (const auto* key : keys)
    if (const auto* value = event.detail.find(key)) words.set(key, *value);
  event.detail = std::move(words);
}

}  // namespace

Result read(const std::filesystem::path& log, std::optional<std::int64_t> periodsSinceMs, std::int64_t nowMs) {
  Result result;
  const auto auditSinceMs = nowMs - static_cast<std::int64_t>(NightlyCoachOutputAudit::lookbackHours * 3'600'000);
  const auto sinceMs = periodsSinceMs.value_or(std::numeric_limits<std::int64_t>::min());
  auto reader = JSONLReaders::events(log, [&](EventLogEvent& event) {
    ++result.overallCount;
    if (event.tsMs <= nowMs) result.latestEventMs = std::max(result.latestEventMs.value_or(event.tsMs), event.tsMs);
    if (event.tsMs >= auditSinceMs || isOfAllDays(event.type)) return true;
    if (event.tsMs < sinceMs || !PeriodRendering::contributes(event.type)) return false;
    cutDown(event);
    return true;
  });
  try {
    result.events = match(
        reader.readFull(), [](Reset<EventLogEvent>&& all) { return std::move(all.rows); },
        [](Appended<EventLogEvent>&& some) { return std::move(some.rows); });
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
  }
  std::ranges::stable_sort(result.events, {}, &EventLogEvent::tsMs);
  return result;
}

}  // namespace halvo::ConsolidationLogRead
