#include "AmbitudeCore/Memory/ConsolidationParsing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo::ConsolidationParsing {

namespace {

constexpr std::size_t excerptCharacters = 200;

std::optional<JSONObject> object(std::string_view reply) {
  const auto from = reply.find('{'), to = reply.rfind('}');
  if (from == std::string_view::npos || to == std::string_view::npos || to < from) return std::nullopt;
  const auto value = JSONValue::parse(reply.substr(from, to - from + 1));
  const auto* found = value ? value->objectValue() : nullptr;
  return found ? std::optional(*found) : std::nullopt;
}

/// The list at a key; null when it is missing or anything else.
const JSONValue::Array* list(const JSONObject& object, std::string_view key) {
  const auto* found = object.find(key);
  return found ? found->arrayValue() : nullptr;
}

std::optional<std::string> words(const JSONValue* value) {
  const auto* text = value ? value->stringValue() : nullptr;
  return text && !Text::isBlank(*text) ? std::optional(std::string(Text::trim(*text))) : std::nullopt;
}

std::vector<std::string> texts(const JSONValue::Array* array) {
  std::vector<std::string> found;
  if (array)
    for (const auto& entry : *array)
      if (auto text = words(&entry)) found.push_back(std::move(*text));
  return found;
}

/// A whole number from `low` up to but not at `high`.
std::optional<std::size_t> position(const JSONValue& value, std::size_t low, std::size_t high) {
  const auto number = value.numberValue();
  if (!number || *number < static_cast<double>(low) || *number >= static_cast<double>(high) || *number != std::floor(*number))
    return std::nullopt;
  return static_cast<std::size_t>(*number);
}

MemoryFact factOf(const JSONValue& entry, std::string text, std::span<const std::int64_t> lineTsMs) {
  MemoryFact fact{.text = std::move(text)};
  const auto* provenance = entry.find("provenance");
  const auto* raw = provenance ? provenance->stringValue() : nullptr;
  if (raw && *raw == rawValue(MemoryFactProvenance::asserted)) fact.provenance = MemoryFactProvenance::asserted;
  const auto* lines = entry.find("source_lines");
  if (!lines || !lines->arrayValue()) return fact;
  for (const auto& line : *lines->arrayValue())
    if (const auto number = position(line, 1, lineTsMs.size() + 1)) fact.sourceEventTsMs.push_back(lineTsMs[*number - 1]);
  return fact;
}

std::string_view suffix(std::string_view text, std::size_t characters) {
  const auto count = Text::count(text);
  return count <= characters ? text : text.substr(Text::prefix(text, count - characters).size());
}

}  // namespace

std::optional<Digest> digest(std::string_view reply, std::span<const std::int64_t> lineTsMs) {
  const auto found = object(reply);
  auto summary = found ? words(found->find("summary")) : std::nullopt;
  if (!summary) return std::nullopt;
  Digest result{.summary = std::move(*summary), .lessons = texts(list(*found, "lessons"))};
  if (const auto* facts = list(*found, "facts"))
    for (const auto& entry : *facts)
      if (auto text = words(entry.find("text"))) result.facts.push_back(factOf(entry, std::move(*text), lineTsMs));
  return result;
}

std::optional<Regeneration> regeneration(std::string_view reply, std::size_t factCount) {
  const auto found = object(reply);
  if (!found) return std::nullopt;
  const auto *threads = list(*found, "threads"), *keep = list(*found, "keep_fact_indices"), *lessons = list(*found, "lessons");
  if (!threads || !keep || !lessons) return std::nullopt;
  Regeneration result{.lessons = texts(lessons)};
  for (const auto& entry : *threads) {
    auto name = words(entry.find("name"));
    if (!name) continue;
    const auto status = fromRawValue<MemoryThreadStatus>(words(entry.find("status")).value_or(""));
    result.threads.push_back({std::move(*name), status.value_or(MemoryThreadStatus::active), words(entry.find("notes")).value_or("")});
  }
  for (const auto& entry : *keep)
    if (const auto index = position(entry, 0, factCount)) result.keepFactIndices.push_back(*index);
  auto& kept = result.keepFactIndices;
  std::ranges::sort(kept);
  kept.erase(std::unique(kept.begin(), kept.end()), kept.end());
  return result;
}

std::string salvageDetail(const ChatResponse& response) {
  const auto characters = Text::count(response.text);
  if (!response.truncated) return fmt::format("the reply was complete ({} chars) but was not the JSON asked for", characters);
  if (Text::isBlank(response.text))
    return fmt::format("the reply was cut off before any answer was written ({}chars of thinking filled the model's limit)",
                       Text::count(response.thinking));
  return fmt::format("the reply was cut off after {} chars, before the JSON closed", characters);
}

std::vector<std::string> excerptLines(std::string_view reply) {
  const auto clean = Text::newlinesToBlanks(SecretRedaction::redact(reply));
  return {"  response head: " + std::string(Text::prefix(clean, excerptCharacters)),
          "  response tail: " + std::string(suffix(clean, excerptCharacters))};
}

}  // namespace halvo::ConsolidationParsing
