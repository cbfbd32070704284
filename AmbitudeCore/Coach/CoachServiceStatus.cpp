#include "AmbitudeCore/Coach/CoachServiceStatus.h"

#include <limits>
#include <utility>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

const EventLogEvent* newest(std::span<const EventLogEvent> events) {
  return EventScan::newest(events, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(),
                           [](const EventLogEvent& event) {
                             return event.type == EventType::coachServiceProblem || event.type == EventType::coachServiceRestored;
                           });
}

bool isTransportFailure(const std::exception& error) {
  const auto* ofModel = dynamic_cast<const ModelBackendError*>(&error);
  return ofModel && ofModel->kind() == ModelBackendError::Kind::transportError;
}

}  // namespace

void CoachServiceStatus::resume(std::span<const EventLogEvent> events) {
  const auto* last = newest(events);
  if (!last || last->type != EventType::coachServiceProblem) return;
  const auto* reason = last->text("reason");
  run_.with([&](Run& run) { run.reported = reason ? *reason : std::string(); });
}

std::optional<EventLogEvent> CoachServiceStatus::observe(const std::exception& error, std::int64_t asOfMs) {
  const bool ofTransport = isTransportFailure(error);
  if (ofTransport ? !config_.countsTransportFailures : !isRetryable(error)) return std::nullopt;
  const auto reason = ofTransport ? std::string(unreachable) : describeError(error);
  const bool isProblem = run_.with([&](Run& run) {
    if (++run.consecutiveFailures < config_.retryableThreshold || run.reported) return false;
    run.reported = reason;
    return true;
  });
  if (!isProblem) return std::nullopt;
  return CoachTurnEffects::event("coach_service_problem", {{"reason", reason}}, asOfMs);
}

std::optional<EventLogEvent> CoachServiceStatus::observeSuccess(std::int64_t asOfMs, bool servedByFallback) {
  if (servedByFallback) return std::nullopt;
  const bool wasReported = run_.with([](Run& run) { return std::exchange(run, Run{}).reported.has_value(); });
  if (!wasReported) return std::nullopt;
  return CoachTurnEffects::event("coach_service_restored", {}, asOfMs);
}

std::optional<std::string> CoachServiceStatus::displayText(const EventLogEvent& event) {
  if (event.type == EventType::coachServiceRestored) return tr("The coach service is working again.");
  if (event.type != EventType::coachServiceProblem) return std::nullopt;
  const auto* reason = event.text("reason");
  if (reason && *reason == unreachable) return tr("Halvo can't reach its coach service. Check your internet connection.");
  return tr("The coach service isn't working right now.");
}

std::optional<std::string> CoachServiceStatus::displayText(std::span<const EventLogEvent> events) {
  const auto* last = newest(events);
  return last ? displayText(*last) : std::nullopt;
}

}  // namespace halvo
