#include "AmbitudeCore/Review/SystemReviewLabels.h"

#include "AmbitudeCore/Review/LabelRows.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::SystemReviewLabels {

namespace {

using TextField = std::pair<const char*, std::optional<std::string> Row::*>;
constexpr TextField rowTexts[] = {{"describeText", &Row::describeText},       {"describeComment", &Row::describeComment},
                                  {"verdictComment", &Row::verdictComment},   {"classifierState", &Row::classifierState},
                                  {"classifierReason", &Row::classifierReason}, {"note", &Row::note}};
constexpr std::pair<const char*, std::optional<std::string> Marker::*> markerTexts[] = {
    {"frontmostApp", &Marker::frontmostApp}, {"windowTitle", &Marker::windowTitle}, {"browserURL", &Marker::browserURL},
    {"ocrText", &Marker::ocrText},           {"role", &Marker::role},               {"text", &Marker::text}};

bool isBlank(const std::optional<std::string>& text) { return !text || Text::isBlank(*text); }

template <class E>
void setGrade(JSONObject& object, const char* key, const std::optional<E>& grade) {
  if (grade) object.set(key, rawValue(*grade));
}
template <class E>
std::optional<E> gradeOf(const JSONObject& object, const char* key) {
  return fromRawValue<E>(object.string(key).value_or(""));
}

JSONValue encoded(const Marker& marker) {
  JSONObject object{{"ordinal", marker.ordinal}, {"kind", rawValue(marker.kind)}, {"atMs", marker.atMs}};
  for (const auto& [key, field] : markerTexts)
    if (marker.*field) object.set(key, *(marker.*field));
  return object;
}

std::optional<Marker> decodedMarker(const JSONValue& value) {
  const auto* object = value.objectValue();
  const auto kind = object ? gradeOf<Marker::Kind>(*object, "kind") : std::nullopt;
  const auto atMs = object ? object->integer("atMs") : std::nullopt;
  if (!kind || !atMs) return std::nullopt;
  Marker marker{.ordinal = object->integer("ordinal").value_or(0), .kind = *kind, .atMs = *atMs};
  for (const auto& [key, field] : markerTexts) marker.*field = object->string(key);
  return marker;
}

}  // namespace

bool Row::isEmpty() const {
  return !describeGrade && !verdictGrade && markers.empty() && isBlank(describeComment) && isBlank(verdictComment) && isBlank(note);
}

std::string Row::encode() const {
  JSONObject object{{"v", v}, {"atMs", atMs}, {"labeledAt", labeledAt}};
  if (decisionAtMs) object.set("decisionAtMs", *decisionAtMs);
  setGrade(object, "describeGrade", describeGrade);
  setGrade(object, "verdictGrade", verdictGrade);
  setGrade(object, "describeProvenance", describeProvenance);
  for (const auto& [key, field] : rowTexts)
    if (this->*field) object.set(key, *(this->*field));
  JSONValue::Array list;
  for (const auto& marker : markers) list.push_back(encoded(marker));
  object.set("markers", std::move(list));
  return JSONValue(std::move(object)).dump();
}

std::optional<Row> Row::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  const auto atMs = object ? object->integer("atMs") : std::nullopt;
  if (!atMs) return std::nullopt;
  Row row{.v = object->integer("v").value_or(1),
          .atMs = *atMs,
          .decisionAtMs = object->integer("decisionAtMs"),
          .describeGrade = gradeOf<DescribeGrade>(*object, "describeGrade"),
          .verdictGrade = gradeOf<VerdictGrade>(*object, "verdictGrade"),
          .describeProvenance = gradeOf<DescribeProvenance>(*object, "describeProvenance"),
          .labeledAt = object->string("labeledAt").value_or("")};
  for (const auto& [key, field] : rowTexts) row.*field = object->string(key);
  if (const auto* list = object->find("markers"); list && list->arrayValue())
    for (const auto& one : *list->arrayValue())
      if (auto marker = decodedMarker(one)) row.markers.push_back(std::move(*marker));
  return row;
}

std::string timestamp(std::int64_t ms) { return ISO8601::utcSeconds(ms); }
std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "system-review-labels.jsonl"; }

void append(const Row& row, const std::filesystem::path& url) {
  if (row.isEmpty()) throw WriteError();
  try {
    JSONLAppend::append(std::string_view(row.encode()), url);
  } catch (const JSONEncodingError&) {
    throw JSONLAppendError::encodingFailed();
  }
}

std::vector<Row> read(const std::filesystem::path& url) { return LabelRows::read<Row>(url, Row::decode); }

}  // namespace halvo::SystemReviewLabels
