#include "AmbitudeCore/Gate/GateDecisionLog.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "AmbitudeCore/Folds/TimedTicks.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::GateDecisionLog {
namespace {
/// How far back a state's run is followed: as far as the gate's timeline reaches.
constexpr std::int64_t runLookbackMs = 24LL * 3'600'000;
constexpr int approximateBytesPerLine = 800;

void addClassifierFacts(GateDecisionRecord& record, std::span<const ClassifierTick> ticks) {
  const auto newest = TimedTicks::newest(ticks, record.atMs);
  if (!newest) return;
  const auto& tick = *newest->tick;
  record.classifierState = tick.state;
  record.classifierReason = tick.reason;
  record.declaredTask = tick.declaredTask;
  record.frontmostApp = tick.frontmostApp;
  record.frontmostWindowTitle = tick.frontmostWindowTitle;
  record.classifierTickAtMs = newest->tsMs;
  record.classifierScreenshotAtMs = tick.screenshotAtMs;
  if (!tick.state) return;
  const auto recent = TimedTicks::within(ticks, newest->tsMs - runLookbackMs, newest->tsMs);
  record.stateDurationMs = newest->tsMs - recent[TimedTicks::stateRunStart(recent)].tsMs;
}

void addCommitment(GateDecisionRecord& record, std::span<const EventLogEvent> events) {
  const auto commitment = LatestDeclaration::commitment(events, record.atMs);
  if (!commitment) return;
  record.commitmentNotes = commitment->notes;
  record.commitmentDeclaredAtMs = commitment->declaredAtMs;
  record.commitmentHorizonMinutes = commitment->horizonMinutes;
  if (const auto end = commitment->endMs(); end && record.atMs > *end) record.commitmentOverdueMs = record.atMs - *end;
}
}  // namespace

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "gate-decisions.jsonl"; }

GateDecisionRecord record(const GateOutcome& outcome, std::span<const EventLogEvent> events, std::span<const ClassifierTick> ticks,
                          std::int64_t asOfMs) {
  GateDecisionRecord made{.atMs = asOfMs};
  match(
      outcome,
      [&](const GateDecided& decided) {
        made.decision = decided.decision.shouldCheckIn ? "check_in" : "no_check_in";
        made.summaryForCoach = decided.decision.summaryForCoach;
      },
      [&](const GateFailed& failed) {
        made.decision = "failed";
        made.failureReason = failed.reason;
      });
  addClassifierFacts(made, ticks);
  addCommitment(made, events);
  return made;
}

void append(const GateDecisionRecord& record, const std::filesystem::path& url) {
  std::string line;
  try {
    line = record.encode();
  } catch (const JSONEncodingError&) {
    throw GateDecisionLogError();
  }
  JSONLAppend::append(std::string_view(line), url);
}

std::vector<GateDecisionRecord> read(const std::filesystem::path& url, std::optional<std::size_t> limit) {
  std::vector<GateDecisionRecord> records;
  try {
    IncrementalJSONLReader<GateDecisionRecord> reader(url, GateDecisionRecord::decode, approximateBytesPerLine);
    records = match(
        reader.readFull(), [](Reset<GateDecisionRecord>&& all) { return std::move(all.rows); },
        [](Appended<GateDecisionRecord>&& more) { return std::move(more.rows); });
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
  }
  if (limit && records.size() > *limit) records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(*limit));
  return records;
}

bool isNearOrPastCommitmentBoundary(std::span<const EventLogEvent> events, std::int64_t asOfMs, std::int64_t leadSec) {
  const auto commitment = LatestDeclaration::commitment(events, asOfMs);
  const auto end = commitment ? commitment->endMs() : std::nullopt;
  return end && *end - asOfMs <= leadSec * 1000;
}

}  // namespace halvo::GateDecisionLog
