#include "AmbitudeCore/Review/GateGapLabelWriter.h"

#include "AmbitudeCore/Review/LabelRows.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo::GateGapLabelWriter {

std::optional<Row> Row::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto fromMs = object->integer("fromMs"), toMs = object->integer("toMs");
  const auto label = fromRawValue<Label>(object->string("label").value_or(""));
  if (!fromMs || !toMs || !label) return std::nullopt;
  return Row{.v = object->integer("v").value_or(1),
             .fromMs = *fromMs,
             .toMs = *toMs,
             .isOpen = object->boolean("isOpen").value_or(false),
             .label = *label,
             .note = object->string("note"),
             .labeledAt = object->string("labeledAt").value_or("")};
}

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "gate-gap-labels.jsonl"; }

void append(const Row& row, const std::filesystem::path& url) {
  JSONObject object{{"v", row.v},           {"fromMs", row.fromMs},          {"toMs", row.toMs},
                    {"isOpen", row.isOpen}, {"label", rawValue(row.label)}, {"labeledAt", row.labeledAt}};
  if (row.note) object.set("note", *row.note);
  JSONLAppend::appendValue(object, url);
}

std::vector<Row> read(const std::filesystem::path& url) { return LabelRows::read<Row>(url, Row::decode); }

}  // namespace halvo::GateGapLabelWriter
