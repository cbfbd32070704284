#include "AmbitudeCore/Review/GateLabelWriter.h"

#include <algorithm>

#include <fmt/format.h>

#include "AmbitudeCore/Review/LabelRows.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo::GateLabelWriter {

std::optional<Row> Row::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  const auto atMs = object ? object->integer("atMs") : std::nullopt;
  const auto label = object ? fromRawValue<Label>(object->string("label").value_or("")) : std::nullopt;
  if (!atMs || !label) return std::nullopt;
  return Row{.v = object->integer("v").value_or(1),
             .atMs = *atMs,
             .label = *label,
             .decision = object->string("decision").value_or(""),
             .note = object->string("note"),
             .labeledAt = object->string("labeledAt").value_or("")};
}

std::vector<Label> choices(std::string_view decision) {
  if (decision == "check_in") return {Label::rightToSpeak, Label::shouldNotHaveSpoken};
  if (decision == "no_check_in") return {Label::rightToStayQuiet, Label::shouldHaveSpoken};
  return {};
}

WriteError WriteError::polarityMismatch(Label label, std::string_view decision) {
  return WriteError(fmt::format("\"{}\" does not apply to the decision \"{}\"", rawValue(label), decision));
}

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "gate-labels.jsonl"; }

void append(const Row& row, const std::filesystem::path& url) {
  const auto applying = choices(row.decision);
  if (std::ranges::find(applying, row.label) == applying.end()) throw WriteError::polarityMismatch(row.label, row.decision);
  JSONObject object{{"v", row.v},
                    {"atMs", row.atMs},
                    {"label", rawValue(row.label)},
                    {"decision", row.decision},
                    {"labeledAt", row.labeledAt}};
  if (row.note) object.set("note", *row.note);
  JSONLAppend::appendValue(object, url);
}

std::vector<Row> read(const std::filesystem::path& url) { return LabelRows::read<Row>(url, Row::decode); }

std::vector<GateFeedbackLadder::LabelRow> ladderRows(const std::vector<Row>& rows) {
  std::vector<GateFeedbackLadder::LabelRow> made;
  for (const auto& row : rows) made.push_back({.atMs = row.atMs, .label = row.label});
  return made;
}

}  // namespace halvo::GateLabelWriter
