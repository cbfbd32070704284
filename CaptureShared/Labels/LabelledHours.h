#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"

/// The hours whose footage the labels were made from.
namespace halvo::LabelledHours {

inline constexpr int maxHoursPerLabel = 9'600;  ///< 400 days: what is longer is no label

struct Query {
  std::filesystem::path database;  ///< `labels.sqlite`
  std::int64_t lookbackMs = 0;     ///< before a label's start. Below 0 counts as 0; so much at most that the label's own hour is among the hours
  std::int64_t lookaheadMs = 0;    ///< behind its end; likewise
  const Calendar& calendar;
};
/// Ends included.
struct Span {
  std::int64_t fromMs = 0, toMs = 0;
};
/// What lies around the labels.
struct Hours {
  /// As the calendar names the hours, and as the clock did where each label was written: the zone may have changed since.
  std::set<std::string> prefixes = {};
  std::vector<Span> spans = {};  ///< one a label
};
/// The hours around every label, ends included. Empty when there is no database in a folder that is there: nothing was ever labelled.
/// Absent whenever that can't be told: no folder, a link that leads nowhere, a file that isn't this database or can't be read, a row whose
/// times are no integers. Never throws.
std::optional<Hours> sourceHours(const Query& query);

}  // namespace halvo::LabelledHours
