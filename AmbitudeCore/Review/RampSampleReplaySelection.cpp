#include "AmbitudeCore/Review/RampSampleReplaySelection.h"

#include <map>

#include "AmbitudeCore/Review/RampLabelSubmission.h"
#include "CaptureShared/Labels/LabelsWriter.h"

namespace halvo::RampSampleReplaySelection {

namespace {

struct Newest {
  const Row* any = nullptr;
  const Row* blind = nullptr;
};
std::map<std::int64_t, Newest> newestByMoment(std::span<const Row> rows) {
  std::map<std::int64_t, Newest> groups;
  // Rows are numbered as they are written; the clock may be set back.
  const auto keep = [](const Row*& kept, const Row& row) {
    if (!kept || row.id >= kept->id) kept = &row;
  };
  for (const auto& row : rows) {
    auto& group = groups[row.t0Ms];
    keep(group.any, row);
    if (isBlind(row)) keep(group.blind, row);
  }
  return groups;
}

}  // namespace

bool isBlind(const Row& row) {
  if (row.answeredBlind) return *row.answeredBlind;
  const bool isReview = row.source && *row.source == LabelsWriter::rampSourceValue;
  return !isReview || !row.notes || row.notes->find(RampLabelSubmission::revisedAfterRevealNote) == std::string::npos;
}

std::vector<Row> selectForScoring(std::span<const Row> rows, bool preferBlind) {
  std::vector<Row> chosen;
  for (const auto& [t0Ms, newest] : newestByMoment(rows)) chosen.push_back(preferBlind && newest.blind ? *newest.blind : *newest.any);
  return chosen;
}

std::vector<Row> groupsWithExcludedRevision(std::span<const Row> rows) {
  std::vector<Row> excluded;
  for (const auto& [t0Ms, newest] : newestByMoment(rows))
    if (newest.blind && newest.any != newest.blind) excluded.push_back(*newest.any);
  return excluded;
}

}  // namespace halvo::RampSampleReplaySelection
