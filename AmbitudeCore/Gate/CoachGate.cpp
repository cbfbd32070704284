#include "AmbitudeCore/Gate/CoachGate.h"

#include <bit>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Gate/CoachGateSchema.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo::CoachGate {
namespace {
enum class Format { free, schema };

/// A reply, or the outcome of a call that failed.
std::variant<ChatResponse, GateFailed> ask(ModelBackend& backend, const Question& question, Format format, const std::stop_token& stop) {
  ChatOptions options{.maxTokens = question.maxTokens, .think = true, .sessionID = question.sessionID, .turn = ChatTurn::background};
  if (format == Format::schema) options.responseSchemaJSON = CoachGateSchema::schemaJSON();
  try {
    auto response = backend.chat({ChatMessage::user(question.message)}, {}, options, stop);
    if (question.onUsage) question.onUsage(response);
    return response;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    if (question.onBackendError) question.onBackendError(error);
    return GateFailed{"backend: " + describeError(error)};
  }
}

GateOutcome read(const ChatResponse& response) {
  if (response.truncated) return GateFailed{"truncated response"};
  return CoachGateSchema::parse(response.text);
}

/// Redacted before it is cut, so that a cut can't hide the part that gives a secret away.
std::string loggable(const std::string& text) {
  const auto redacted = Text::newlinesToBlanks(SecretRedaction::redact(text));
  const auto length = Text::count(redacted);
  if (length <= rawTextCap) return redacted;
  return fmt::format("{}…({} chars)", Text::prefix(redacted, rawTextCap), length);
}

std::string retryLine(const std::string& reason, const std::string& raw, GateUnconstrainedBreaker* breaker) {
  if (!breaker) return reason + " (raw: " + raw + ")";
  const auto failure = breaker->recordParseFailure();
  // The back-off has stopped growing and failures go on: floor(log2) + 1 is the number of failures it took to get here.
  const bool stuck = failure.skipTicks == breaker->maxBackoffTicks() && failure.skipTicks > 0 &&
                     static_cast<int>(std::bit_width(static_cast<unsigned>(failure.skipTicks))) < failure.consecutiveFailures;
  return fmt::format(
      "{}{} (raw: {}) — skipping the unconstrained attempt for the next {} tick(s) [consecutiveFailures={}, "
      "ticksSinceLastUnconstrainedSuccess={}]",
      stuck ? "GATE UNCONSTRAINED STUCK AT CEILING: " : "", reason, raw, failure.skipTicks, failure.consecutiveFailures,
      failure.ticksSinceLastSuccess);
}

/// The unconstrained attempt; absent when its reply could not be read and the schema is to be tried.
std::optional<GateOutcome> attempt(ModelBackend& backend, const Question& question, const std::stop_token& stop) {
  return match(
      ask(backend, question, Format::free, stop),
      [&](const ChatResponse& response) -> std::optional<GateOutcome> {
        return match(
            read(response),
            [&](const GateDecided& decided) -> std::optional<GateOutcome> {
              if (question.breaker) question.breaker->recordSuccess();
              return decided;
            },
            [&](const GateFailed& failed) -> std::optional<GateOutcome> {
              const auto line = retryLine(failed.reason, loggable(response.text), question.breaker);
              if (question.onUnconstrainedRetry) question.onUnconstrainedRetry(line);
              return std::nullopt;
            });
      },
      // The backend is what failed, not the format: a schema would not help.
      [](const GateFailed& failed) -> std::optional<GateOutcome> { return failed; });
}
}  // namespace

GateOutcome decide(ModelBackend& backend, const Question& question, const std::stop_token& stop) {
  if (question.unconstrained && (!question.breaker || question.breaker->allowsUnconstrained()))
    if (auto outcome = attempt(backend, question, stop)) return *outcome;
  return match(
      ask(backend, question, Format::schema, stop), [](const ChatResponse& response) { return read(response); },
      [](const GateFailed& failed) -> GateOutcome { return failed; });
}

}  // namespace halvo::CoachGate
