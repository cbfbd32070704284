#include "AmbitudeCore/Gate/CoachGateSchema.h"

#include <algorithm>

#include "AmbitudeCore/Gate/CoachGateQuestion.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::CoachGateSchema {
namespace {
std::string property(std::string_view key, std::string_view type, std::string_view description) {
  return JSONValue(key).dump() + R"(:{"type":)" + JSONValue(type).dump() + R"(,"description":)" + JSONValue(description).dump() + "}";
}
}  // namespace

const std::string& schemaJSON() {
  // Written out rather than built as a value: a value would sort the properties and put the decision before the reading.
  static const std::string schema =
      R"({"type":"object","additionalProperties":false,"required":["summary_for_coach","should_check_in"],"properties":{)" +
      property(declaredKeyOrder[0], "string",
               std::string(CoachGateQuestion::summaryDescription) + " " + std::string(CoachGateQuestion::summaryExample)) +
      "," + property(declaredKeyOrder[1], "boolean", CoachGateQuestion::shouldCheckInDescription) + "}}";
  return schema;
}

GateOutcome parse(std::string_view text) {
  const auto trimmed = Text::trim(text);
  if (trimmed.empty()) return GateFailed{"empty response"};
  const auto open = trimmed.find('{');
  const auto close = trimmed.rfind('}');
  if (open == std::string_view::npos || close == std::string_view::npos || open > close) return GateFailed{"no JSON object found"};
  const auto value = JSONValue::parse(trimmed.substr(open, close - open + 1));
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return GateFailed{"not a JSON object"};
  auto summary = object->string(declaredKeyOrder[0]);
  if (!summary) return GateFailed{"missing or non-string `summary_for_coach`"};
  const auto shouldCheckIn = object->boolean(declaredKeyOrder[1]);
  if (!shouldCheckIn) return GateFailed{"missing or non-boolean `should_check_in`"};
  return GateDecided{{.summaryForCoach = std::move(*summary), .shouldCheckIn = *shouldCheckIn}};
}

std::vector<std::string_view> observedKeyOrder(std::string_view text) {
  std::vector<std::pair<std::size_t, std::string_view>> found;
  for (const auto key : declaredKeyOrder)
    if (const auto at = text.find(JSONValue(key).dump()); at != std::string_view::npos) found.emplace_back(at, key);
  std::ranges::sort(found);
  std::vector<std::string_view> keys;
  for (const auto& [at, key] : found) keys.push_back(key);
  return keys;
}

bool keyOrderIsCorrect(std::string_view text) { return std::ranges::equal(observedKeyOrder(text), declaredKeyOrder); }

bool summaryAddressesSecondPerson(std::string_view text) {
  static const Regex secondPerson("\\b(you|you're|you've|you'd|you'll|your|yours)\\b", Regex::Flag::caseless);
  return secondPerson.matches(text);
}

}  // namespace halvo::CoachGateSchema
