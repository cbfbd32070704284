#include "CaptureShared/Records/GateDecisionRecord.h"

#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {
namespace {
/// An object written member by member, so that a person who reads the log finds the keys in their order. Absent members are left out.
class Members {
 public:
  void add(std::string_view key, const JSONValue& value) {
    text_ += text_.empty() ? "{\"" : ",\"";
    text_.append(key).append("\":").append(value.dump());
  }
  template <class T>
  void add(std::string_view key, const std::optional<T>& value) {
    if (value) add(key, JSONValue(*value));
  }
  std::string closed() && { return std::move(text_) + "}"; }

 private:
  std::string text_;
};
}  // namespace

std::string GateDecisionRecord::encode() const {
  Members members;
  members.add("v", JSONValue(v));
  members.add("at_ms", JSONValue(atMs));
  members.add("decision", JSONValue(decision));
  members.add("summary_for_coach", summaryForCoach);
  members.add("failure_reason", failureReason);
  members.add("classifier_state", classifierState);
  members.add("classifier_reason", classifierReason);
  members.add("declared_task", declaredTask);
  members.add("frontmost_app", frontmostApp);
  members.add("frontmost_window_title", frontmostWindowTitle);
  members.add("state_duration_ms", stateDurationMs);
  members.add("classifier_tick_at_ms", classifierTickAtMs);
  members.add("classifier_screenshot_at_ms", classifierScreenshotAtMs);
  members.add("commitment_notes", commitmentNotes);
  members.add("commitment_declared_at_ms", commitmentDeclaredAtMs);
  members.add("commitment_horizon_minutes", commitmentHorizonMinutes);
  members.add("commitment_overdue_ms", commitmentOverdueMs);
  return std::move(members).closed();
}

std::optional<GateDecisionRecord> GateDecisionRecord::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto at = object->integer("at_ms");
  auto decision = object->string("decision");
  if (!at || !decision) return std::nullopt;
  return GateDecisionRecord{.v = object->integer("v").value_or(1),
                            .atMs = *at,
                            .decision = std::move(*decision),
                            .summaryForCoach = object->string("summary_for_coach"),
                            .failureReason = object->string("failure_reason"),
                            .classifierState = object->string("classifier_state"),
                            .classifierReason = object->string("classifier_reason"),
                            .declaredTask = object->string("declared_task"),
                            .frontmostApp = object->string("frontmost_app"),
                            .frontmostWindowTitle = object->string("frontmost_window_title"),
                            .stateDurationMs = object->integer("state_duration_ms"),
                            .classifierTickAtMs = object->integer("classifier_tick_at_ms"),
                            .classifierScreenshotAtMs = object->integer("classifier_screenshot_at_ms"),
                            .commitmentNotes = object->string("commitment_notes"),
                            .commitmentDeclaredAtMs = object->integer("commitment_declared_at_ms"),
                            .commitmentHorizonMinutes = object->integer("commitment_horizon_minutes"),
                            .commitmentOverdueMs = object->integer("commitment_overdue_ms")};
}

}  // namespace halvo
