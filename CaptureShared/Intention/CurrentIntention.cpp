#include "CaptureShared/Intention/CurrentIntention.h"

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

int number(std::string_view digits) { return static_cast<int>(Text::parseInteger(digits).value_or(0)); }

/// A 12-hour clock as 0 to 23.
int hour24(int hour, std::string_view half) { return hour % 12 + (Text::equalsIgnoringCase(half, "pm") ? 12 : 0); }

}  // namespace

std::optional<CurrentIntention> CurrentIntention::parse(std::string_view body) {
  CurrentIntention intention;
  for (const auto line : Text::split(body, '\n')) {
    auto take = [&](std::string_view prefix) -> std::optional<std::string> {
      if (!line.starts_with(prefix)) return std::nullopt;
      return std::string(Text::trimBlanksAndTabs(line.substr(prefix.size())));
    };
    if (auto task = take("Task:"))
      intention.task = std::move(*task);
    else if (auto declared = take("Declared:"))
      intention.declared = std::move(declared);
    else if (auto estimate = take("Estimate:"))
      intention.estimate = std::move(estimate);
    else if (auto why = take("Why:"))
      intention.why = std::move(why);
  }
  return intention.task.empty() ? std::nullopt : std::optional(std::move(intention));
}

std::optional<DeclaredIntentionDetails> DeclaredIntentionDetails::parse(std::string_view body, const Calendar& calendar) {
  auto intention = CurrentIntention::parse(body);
  if (!intention) return std::nullopt;
  DeclaredIntentionDetails details{
      .text = std::move(intention->task), .declaredAtRaw = std::move(intention->declared), .estimate = std::move(intention->estimate)};
  static const Regex pattern(R"(^(\d{4})-(\d{2})-(\d{2}) (\d{1,2}):(\d{2})(am|pm))", Regex::Flag::caseless);
  if (!details.declaredAtRaw) return details;
  const std::string& raw = *details.declaredAtRaw;
  if (const auto found = pattern.find(raw)) {
    const auto part = [&](std::size_t group) { return found->text(raw, group).value_or(""); };
    details.declaredAtMs = calendar.instant(number(part(1)), number(part(2)), number(part(3)), hour24(number(part(4)), part(6)), number(part(5)));
  }
  return details;
}

EstimateReading::Reading EstimateReading::read(const DeclaredIntentionDetails& details, const Calendar& calendar) {
  if (!details.estimate || details.estimate->empty()) return None{};
  const std::string& text = *details.estimate;
  static const Regex pattern(R"((?<![\d:])(\d{1,2})(?::(\d{2}))?\s*(am|pm)\b)", Regex::Flag::caseless);
  const auto found = pattern.find(text);
  if (!found) return Unreadable{text};
  const int hour = number(*found->text(text, 1)), minute = number(found->text(text, 2).value_or("0"));
  if (hour < 1 || hour > 12 || minute > 59) return Unreadable{text};
  if (!details.declaredAtMs) return Rejected{text};
  const auto day = calendar.fields(*details.declaredAtMs);
  const auto at = calendar.instant(day.year, day.month, day.day, hour24(hour, *found->text(text, 3)), minute);
  if (at <= *details.declaredAtMs) return Rejected{text};
  return At{at, text};
}

}  // namespace halvo
