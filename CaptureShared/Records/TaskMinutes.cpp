#include "CaptureShared/Records/TaskMinutes.h"

#include <algorithm>
#include <cmath>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::optional<int> cleanTaskMinutes(const JSONValue* value) {
  if (!value) return std::nullopt;
  double minutes = 0;
  if (const auto number = value->numberValue()) {
    minutes = *number;
  } else if (const auto* text = value->stringValue()) {
    const auto digits = Text::trim(*text);
    const bool allDigits = !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    const auto parsed = allDigits ? Text::parseInteger(digits) : std::nullopt;
    if (!parsed) return std::nullopt;
    minutes = static_cast<double>(*parsed);
  } else {
    return std::nullopt;
  }
  if (!std::isfinite(minutes)) return std::nullopt;
  const double whole = std::trunc(minutes);
  if (whole < 1 || whole > 10'080) return std::nullopt;
  return static_cast<int>(whole);
}

}  // namespace halvo
