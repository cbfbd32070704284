#include "AmbitudeAppKit/Entry/CheckIn.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

std::optional<CheckIn> CheckIn::decode(std::string_view line, std::size_t place) {
  const auto parsed = JSONValue::parse(line);
  const auto* row = parsed ? parsed->objectValue() : nullptr;
  auto at = row ? row->string("at") : std::nullopt;
  if (!at) return std::nullopt;
  CheckIn checkIn{.id = fmt::format("{}#{}", *at, place),
                  .atMs = ISO8601::parse(*at),
                  .atRaw = *at,
                  .state = row->string("state").value_or("-"),
                  .coachMove = row->string("coach_move"),
                  .coachMessage = row->string("coach_message"),
                  .frontmostApp = row->string("frontmost_app"),
                  .reason = row->string("reason"),
                  .declaredTask = row->string("declared_task"),
                  .screenshotAtMs = row->integer("screenshot_at_ms"),
                  .reasonCheck = row->string("reason_check")};
  return checkIn;
}

}  // namespace halvo
