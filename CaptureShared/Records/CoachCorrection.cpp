#include "CaptureShared/Records/CoachCorrection.h"

namespace halvo {

std::optional<std::int64_t> CoachCorrection::expiry(Lasts lasts, std::int64_t saidAtMs, const Calendar& calendar) {
  switch (lasts) {
    case Lasts::untilChanged: return std::nullopt;
    case Lasts::restOfToday: return calendar.nextHour(saidAtMs, dayBoundaryHour);
    case Lasts::nextFewHours: return saidAtMs + static_cast<std::int64_t>(nextFewHoursDuration * 1000);
  }
  return std::nullopt;
}

}  // namespace halvo
