#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Which of the stored labels may measure a verdict: one given after the verdict was seen is no evidence about it.
namespace halvo::RampSampleReplaySelection {

struct Row {
  std::int64_t id = 0;
  std::int64_t t0Ms = 0;
  std::optional<std::string> source = {};
  std::optional<std::string> notes = {};
  std::optional<bool> answeredBlind = {};
  std::string createdAt = {};
  bool operator==(const Row&) const = default;
};

/// `answeredBlind` decides where it is known; else a review's row whose notes say that it was revised is not.
bool isBlind(const Row& row);
/// One row a moment, oldest moment first: the newest one, or with `preferBlind` the newest blind one where there is any.
std::vector<Row> selectForScoring(std::span<const Row> rows, bool preferBlind);
/// The moments whose newest row `selectForScoring` passes over for an older blind one: those newest rows.
std::vector<Row> groupsWithExcludedRevision(std::span<const Row> rows);

}  // namespace halvo::RampSampleReplaySelection
