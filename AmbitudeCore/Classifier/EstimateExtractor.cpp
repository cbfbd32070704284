#include "AmbitudeCore/Classifier/EstimateExtractor.h"

#include <fmt/format.h>

#include <cmath>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Classifier/ModelReply.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/ScreenText.h"
#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo {

EstimateExtractorError EstimateExtractorError::httpError(int status, const std::string& body) {
  return {Kind::httpError, fmt::format("HTTP {}: {}", status, ModelReply::excerpt(body))};
}

EstimateExtractorError EstimateExtractorError::invalidResponse(const std::string& text) { return {Kind::invalidResponse, text}; }

namespace EstimateExtractor {
namespace {

std::string ask(std::string_view declaredText, const Config& config, HTTPTransport& transport, const std::stop_token& stop) {
  try {
    return LocalInferenceWire::ask({.endpoint = config.endpoint,
                                    .model = config.model,
                                    .messages = {LocalInferenceWire::message(ChatRole::system, std::string(systemPrompt)),
                                                 LocalInferenceWire::message(ChatRole::user, ScreenText::breakTurnMarkers(declaredText))},
                                    .maxTokens = config.numPredict,
                                    .timeoutSec = config.timeout,
                                    .jsonReply = true},
                                   transport, stop);
  } catch (const ModelBackendError& error) {
    if (error.kind() == ModelBackendError::Kind::httpError) throw EstimateExtractorError::httpError(error.status(), error.text());
    throw EstimateExtractorError::invalidResponse(describeError(error));
  }
}

Estimate parsed(const std::string& reply, const LogSink& log) {
  const auto json = JSONValue::parse(reply);
  const auto* object = json ? json->objectValue() : nullptr;
  if (!object)
    throw EstimateExtractorError::invalidResponse("model reply was not a JSON object: " + ModelReply::excerpt(reply));
  Estimate estimate{.reason = object->string("reason").value_or("")};
  const auto minutes = object->number("estimated_minutes");
  if (object->boolean("has_estimate") != true || !minutes) return estimate;
  if (*minutes >= 0 && *minutes <= longestEstimateMinutes)
    estimate.minutes = *minutes;
  else
    log(fmt::format("discarded negative/same-day-mismatched estimate: {}", *minutes));
  return estimate;
}

void keep(std::string_view declaredText, const Estimate& estimate, const std::filesystem::path& signalsPath, std::int64_t nowMs) {
  SQLiteDB db(signalsPath, SQLiteDB::Role::writer);
  db.exec(
      "CREATE TABLE IF NOT EXISTS estimate_cache (\n    declared_task TEXT PRIMARY KEY, estimated_minutes REAL, reason TEXT, parsed_at_ms "
      "INTEGER)");
  db.insert("INSERT OR REPLACE INTO estimate_cache VALUES (?, ?, ?, ?)",
            {std::string(declaredText), sqliteValue(estimate.minutes), estimate.reason, nowMs});
}

}  // namespace

Estimate extract(std::string_view declaredText, const std::filesystem::path& signalsPath, const Config& config, HTTPTransport& transport,
                 std::int64_t nowMs, const LogSink& log, const std::stop_token& stop) {
  const auto estimate = parsed(ask(declaredText, config, transport, stop), log);
  try {
    keep(declaredText, estimate, signalsPath, nowMs);
  } catch (const SQLiteError& error) {
    log(fmt::format("estimate cache not written: {}", error.what()));
  }
  return estimate;
}

}  // namespace EstimateExtractor
}  // namespace halvo
