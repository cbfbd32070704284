#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace halvo::EventLogCursor {

inline constexpr std::int64_t defaultSafetyMarginMs = 2000;

struct Advance {
  std::int64_t from = 0;
  const std::vector<std::int64_t>& newEventTimestamps;
  std::int64_t now = 0;
  std::int64_t safetyMarginMs = defaultSafetyMarginMs;
};
/// The next place to read from. It never passes the present less the margin, so that an event written late with an earlier time is still seen;
/// the caller sees some rows twice and drops them.
inline std::int64_t advance(const Advance& step) {
  if (step.newEventTimestamps.empty()) return step.from;
  const auto newest = *std::max_element(step.newEventTimestamps.begin(), step.newEventTimestamps.end());
  return std::max(step.from, std::min(newest, step.now - step.safetyMarginMs));
}

}  // namespace halvo::EventLogCursor
