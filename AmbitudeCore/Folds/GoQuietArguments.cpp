#include "AmbitudeCore/Folds/GoQuietArguments.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::GoQuietArguments {
namespace {
bool asksForRestOfDay(const JSONValue* value) {
  if (!value) return false;
  if (const auto flag = value->boolValue()) return *flag;
  const auto* text = value->stringValue();
  return text && *text == "true";
}

/// Whole minutes without a point, others as short as they can be told.
std::string shown(double minutes) { return fmt::format("{:g}", minutes); }
std::string limits(std::string_view between) { return shown(minMinutes) + std::string(between) + shown(maxMinutes); }
}  // namespace

Parsed parse(const JSONValue& arguments) {
  if (asksForRestOfDay(arguments.find("rest_of_day"))) return RestOfDay{};
  const auto* given = arguments.find("minutes");
  const auto minutes = given ? given->numberValue() : std::nullopt;
  if (!minutes || !std::isfinite(*minutes) || *minutes <= 0) return Malformed{};
  return Minutes{.requested = *minutes, .applied = std::clamp(*minutes, minMinutes, maxMinutes)};
}

std::string resultText(const Parsed& parsed) {
  return match(
      parsed, [](const RestOfDay&) { return std::string("Quiet for the rest of today."); },
      [](const Minutes& minutes) {
        if (minutes.requested == minutes.applied) return "Quiet for " + shown(minutes.applied) + " minutes.";
        return "Quiet for " + shown(minutes.applied) + " minutes — NOT the " + shown(minutes.requested) +
               " you sent: `minutes` must be between " + limits(" and ") + ", so it was set to " + shown(minutes.applied) +
               ". If that is not what they asked for, tell them.";
      },
      [](const Malformed&) {
        return "Not applied — no usable `minutes` (" + limits("-") + ") " +
               "or `rest_of_day` was given, so no quiet window exists.";
      });
}

std::optional<EventLogEvent> requestedEvent(const Parsed& parsed, const std::optional<std::string>& reason, std::int64_t asOfMs,
                                            const Calendar& calendar) {
  using UserQuietRequestedEvent::Applied;
  return match(
      parsed,
      [&](const RestOfDay&) -> std::optional<EventLogEvent> {
        return UserQuietRequestedEvent::make({.untilMs = endMs(UserQuietDuration::restOfDay, asOfMs, calendar),
                                              .reason = reason,
                                              .asOfMs = asOfMs,
                                              .byTool = Applied{}});
      },
      [&](const Minutes& minutes) -> std::optional<EventLogEvent> {
        return UserQuietRequestedEvent::make(
            {.untilMs = asOfMs + std::llround(minutes.applied * 60'000),
             .reason = reason,
             .asOfMs = asOfMs,
             .byTool = Applied{.requestedMinutes = minutes.requested, .appliedMinutes = minutes.applied}});
      },
      [](const Malformed&) -> std::optional<EventLogEvent> { return std::nullopt; });
}

}  // namespace halvo::GoQuietArguments
