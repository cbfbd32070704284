#include "AmbitudeCore/Coach/AppChatEvents.h"

namespace halvo::AppChatEvents {

namespace {

EventLogEvent event(const char* type, JSONObject detail, std::int64_t asOfMs) {
  return {.tsMs = asOfMs, .kind = "event", .type = type, .detail = std::move(detail), .source = "coach-core"};
}

JSONValue provenanceValue(const ChatProvenance& provenance) {
  JSONObject value;
  auto put = [&](const char* key, const std::optional<std::string>& field) {
    if (field) value.set(key, *field);
  };
  put("provider", provenance.provider);
  put("generation_id", provenance.generationID);
  put("served_model", provenance.servedModel);
  put("finish_reason", provenance.finishReason);
  return value;
}

}  // namespace

EventLogEvent userMessage(const std::string& text, std::int64_t asOfMs) {
  return event("app_chat_message", {{"role", "user"}, {"text", text}}, asOfMs);
}

EventLogEvent coachMessage(const CoachMessage& message) {
  JSONObject detail{{"role", "coach"}, {"text", message.text}};
  if (!message.thinking.empty()) detail.set("thinking", message.thinking);
  if (message.truncated) detail.set("truncated", true);
  if (message.servedBy) detail.set("served_by", *message.servedBy);
  if (message.servedByFallback) detail.set("served_by_fallback", true);
  if (message.fallbackCause) detail.set("fallback_cause", rawValue(*message.fallbackCause));
  if (message.provenance && !message.provenance->isEmpty()) detail.set("provenance", provenanceValue(*message.provenance));
  return event("app_chat_message", std::move(detail), message.asOfMs);
}

EventLogEvent turnFailed(const std::string& reason, const std::optional<std::string>& userReason, std::int64_t asOfMs) {
  JSONObject detail{{"reason", reason}};
  if (userReason) detail.set(turnFailedUserReasonKey, *userReason);
  return event("coach_turn_failed", std::move(detail), asOfMs);
}

std::optional<FallbackCause> fallbackCause(const EventLogEvent& of) {
  const auto* raw = of.text("fallback_cause");
  return raw ? fromRawValue<FallbackCause>(*raw) : std::nullopt;
}

}  // namespace halvo::AppChatEvents
