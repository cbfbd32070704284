#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// Something the user told the coach about how it behaves, as the standing instruction it became.
struct CoachCorrection {
  enum class Scope { whetherToSpeak, whatToSay };
  enum class Lasts { untilChanged, restOfToday, nextFewHours };

  std::int64_t atMs = 0;  ///< when it was said; also the record's identity
  std::string text = {};
  std::optional<std::int64_t> foldedAtMs = {};   ///< when the nightly pass took it in
  std::optional<Scope> scope = {};               ///< absent: both
  std::optional<std::int64_t> expiresAtMs = {};  ///< absent: standing
  std::optional<Lasts> lasts = {};

  /// The day of "rest of today" ends at this local hour.
  static constexpr int dayBoundaryHour = 5;
  static constexpr double nextFewHoursDuration = 10800.0;  ///< seconds

  /// Absent for `untilChanged`.
  static std::optional<std::int64_t> expiry(Lasts lasts, std::int64_t saidAtMs, const Calendar& calendar);

  /// One line of the corrections' own file. Absent unless it is an object with `at_ms` and a text that is not blank.
  static std::optional<CoachCorrection> decode(std::string_view line);
  /// The same line without a newline; absent fields are left out. Throws `JSONEncodingError`.
  std::string encode() const;

  bool isStanding() const { return !expiresAtMs; }
  bool isInForce(std::int64_t nowMs) const { return !expiresAtMs || nowMs < *expiresAtMs; }
  bool isPending() const { return !foldedAtMs; }
  bool appliesTo(Scope wanted) const { return !scope || *scope == wanted; }
  bool operator==(const CoachCorrection&) const = default;
};

template <>
struct RawValues<CoachCorrection::Scope> {
  static constexpr std::array table{std::pair{CoachCorrection::Scope::whetherToSpeak, "whether_to_speak"},
                                    std::pair{CoachCorrection::Scope::whatToSay, "what_to_say"}};
};
template <>
struct RawValues<CoachCorrection::Lasts> {
  static constexpr std::array table{std::pair{CoachCorrection::Lasts::untilChanged, "until_changed"},
                                    std::pair{CoachCorrection::Lasts::restOfToday, "rest_of_today"},
                                    std::pair{CoachCorrection::Lasts::nextFewHours, "next_few_hours"}};
};

}  // namespace halvo
