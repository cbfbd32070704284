#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// What a `go_quiet` call asked for, and what the coach is told became of it.
namespace halvo::GoQuietArguments {

inline constexpr double minMinutes = 5.0;
inline constexpr double maxMinutes = 1440.0;

struct RestOfDay {
  bool operator==(const RestOfDay&) const = default;
};
struct Minutes {
  double requested = 0;
  double applied = 0;  ///< `requested` clamped to the limits
  bool operator==(const Minutes&) const = default;
};
/// No window exists.
struct Malformed {
  bool operator==(const Malformed&) const = default;
};
using Parsed = std::variant<RestOfDay, Minutes, Malformed>;

/// "rest_of_day" true (or the text "true") wins; else "minutes" must be a finite number above 0. Never throws.
Parsed parse(const JSONValue& arguments);

/// The answer the model reads: a clamped window never passes for the one that was asked for.
std::string resultText(const Parsed& parsed);

/// The event that opens the window; absent when the call was malformed.
std::optional<EventLogEvent> requestedEvent(const Parsed& parsed, const std::optional<std::string>& reason, std::int64_t asOfMs,
                                            const Calendar& calendar);

}  // namespace halvo::GoQuietArguments
