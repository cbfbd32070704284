#include "AmbitudeCore/Review/ReviewScore.h"

#include <unordered_map>

#include "AmbitudeCore/Review/RampSampleReplaySelection.h"

namespace halvo::ReviewScore {

namespace {

using RampSampleReplaySelection::Row;

std::vector<Row> replayRows(std::span<const LabelHistory::Row> rows) {
  std::vector<Row> made;
  for (const auto& row : rows)
    made.push_back({.id = row.id,
                    .t0Ms = row.t0Ms,
                    .source = row.source,
                    .notes = row.notes,
                    .answeredBlind = row.answeredBlind,
                    .createdAt = row.createdAt});
  return made;
}

bool isBlindRandom(const Row& row) {
  return RampSampleReplaySelection::isBlind(row) && row.notes && row.notes->find("mode=verdict_blind") != std::string::npos;
}

bool isDeclared(std::string_view state) { return state == "NO_TASK" || state == "BREAK"; }

std::optional<double> share(std::int64_t part, std::int64_t whole) {
  return whole > 0 ? std::optional(static_cast<double>(part) / static_cast<double>(whole)) : std::nullopt;
}

}  // namespace

std::optional<double> StateScore::precision() const { return share(agreed, verdicts); }
std::optional<double> StateScore::recall() const { return share(agreed, truths); }

std::optional<std::string_view> stateFor(std::string_view label) {
  if (label == "on_task" || label == "on_task_overtime") return "ON_TASK";
  if (label == "rabbit_hole" || label == "off_task" || label == "not_aligned") return "NOT_ALIGNED";
  if (label == "not_using_computer") return "IDLE";
  if (label == "break") return "BREAK";
  if (label == "no_task") return "NO_TASK";
  return std::nullopt;
}

Score score(std::span<const LabelHistory::Row> rows, std::span<const ClassifierTick> ticks, Evidence evidence) {
  std::unordered_map<std::int64_t, std::string_view> labels;
  for (const auto& row : rows) labels[row.id] = row.label;
  const auto replay = replayRows(rows);
  std::unordered_map<std::int64_t, std::string> verdicts;
  std::set<std::int64_t> wanted;
  for (const auto& row : replay) wanted.insert(row.t0Ms);
  for (const auto& tick : ticks)
    if (const auto atMs = tick.atMs(); atMs && wanted.contains(*atMs) && tick.state && *tick.state != "ABSTAINED")
      // The word of an older build for the same thing.
      verdicts[*atMs] = *tick.state == "OFF_TASK" ? "NOT_ALIGNED" : *tick.state;
  Score told{.revisionsPassed = static_cast<std::int64_t>(RampSampleReplaySelection::groupsWithExcludedRevision(replay).size())};
  for (const auto& row : RampSampleReplaySelection::selectForScoring(replay, true)) {
    const auto truth = stateFor(labels[row.id]);
    const auto verdict = verdicts.find(row.t0Ms);
    if (evidence == Evidence::blindRandom && !isBlindRandom(row)) ++told.otherEvidence;
    else if (!truth) ++told.noTruth;
    else if (verdict == verdicts.end()) ++told.noVerdict;
    else if (isDeclared(verdict->second)) ++told.declared[verdict->second];
    else {
      const bool agrees = verdict->second == *truth;
      ++told.scored, told.agreed += agrees;
      ++told.states[verdict->second].verdicts;
      ++told.states[std::string(*truth)].truths;
      if (agrees) ++told.states[verdict->second].agreed;
    }
  }
  return told;
}

}  // namespace halvo::ReviewScore
