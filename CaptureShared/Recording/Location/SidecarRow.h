#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace halvo::FrameLocator {

/// One captured frame, as a row of `frame_timestamps.csv` tells of it: "realTsMs,,,frameIndexInSession,sessionStartMs".
struct SidecarRow {
  std::int64_t realTsMs = 0;                              ///< milliseconds since the epoch
  std::optional<std::int64_t> frameIndexInSession = {};   ///< from 0 in each recording session
  std::optional<std::int64_t> sessionStartMs = {};        ///< names the session's segments file

  /// Absent when the first column is no integer. The session's columns are both there or both absent: without either of them a frame can't
  /// be placed.
  static std::optional<SidecarRow> parse(std::string_view line);
  bool operator==(const SidecarRow&) const = default;
};

/// The row nearest to a moment, the first of equally near ones; absent without rows. The rows are in ascending time.
std::optional<SidecarRow> nearestRow(std::span<const SidecarRow> rows, std::int64_t targetMs);

/// How far two moments lie apart, whatever they are.
constexpr std::uint64_t distanceMs(std::int64_t a, std::int64_t b) {
  const auto left = static_cast<std::uint64_t>(a), right = static_cast<std::uint64_t>(b);
  return a < b ? right - left : left - right;
}

}  // namespace halvo::FrameLocator
