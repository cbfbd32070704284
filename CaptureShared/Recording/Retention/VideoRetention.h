#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Labels/LabelledHours.h"

/// Which hour files may go. Pure: works on names and numbers, touches no file, never throws.
namespace halvo::VideoRetention {

struct Disabled {
  bool operator==(const Disabled&) const = default;
};
struct DeleteOlderThanDays {
  std::int64_t days = 0;  ///< days of 24 hours; below 0 nothing is old
  bool operator==(const DeleteOlderThanDays&) const = default;
};
using RetentionPolicy = std::variant<Disabled, DeleteOlderThanDays>;
std::optional<std::int64_t> days(const RetentionPolicy& policy);

/// The hour of the wall clock that names a recording, as in "2026-11-16T03".
std::string hourPrefix(std::int64_t ms, const Calendar& calendar);
/// When the hour begins; absent when no clock in the zone ever shows it.
std::optional<std::int64_t> hourStartMs(std::string_view prefix, const Calendar& calendar);
/// The hour prefix in "<prefix>.mkv" or "<prefix>.part<N>.mkv"; absent for any other name.
std::optional<std::string> parseHourPrefix(std::string_view filename);

enum class Verdict { delete_, keptRecent, keptCurrentHour, keptLabelled };

struct Candidate {
  std::string filename, hourPrefix;
  std::int64_t hourStartMs = 0;
  Verdict verdict = Verdict::keptRecent;
  bool operator==(const Candidate&) const = default;
};

struct Facts {
  std::vector<std::string> filenames = {};
  RetentionPolicy policy = {};
  const std::set<std::string>& labelledHourPrefixes;
  std::optional<std::int64_t> deleteBeforeMs = {};                     ///< a second cutoff; the later one is in force
  std::optional<std::map<std::string, std::int64_t>> lastWriteMs = {};  ///< with a map, a file that it lacks is kept
  std::int64_t nowMs = 0;
  const Calendar& calendar;
  std::span<const LabelledHours::Span> labelledSpans = {};
};
/// Every hour file with its verdict, by name; empty when there is no cutoff. An hour goes when its end, and the last write when that is
/// known, lie before the cutoff; the hour of `nowMs` and labelled hours stay. A name that is no hour's is not in the plan.
///
/// A name is of the zone that was in force at the recording, and `calendar` may be another's by now. Times hold everywhere: what was written
/// to within the last hour stays unless the machine was started since, and what may hold a moment of `labelledSpans` counts as labelled.
std::vector<Candidate> plan(const Facts& facts);

}  // namespace halvo::VideoRetention

namespace halvo {

template <>
struct RawValues<VideoRetention::Verdict> {
  static constexpr std::array table{std::pair{VideoRetention::Verdict::delete_, "delete"},
                                    std::pair{VideoRetention::Verdict::keptRecent, "keptRecent"},
                                    std::pair{VideoRetention::Verdict::keptCurrentHour, "keptCurrentHour"},
                                    std::pair{VideoRetention::Verdict::keptLabelled, "keptLabelled"}};
};

}  // namespace halvo
