#include "AmbitudeCore/Backends/Decorators/FallbackModelBackend.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/CoachServiceError.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

FallbackModelBackend::FallbackModelBackend(std::shared_ptr<ModelBackend> primary, std::shared_ptr<ModelBackend> fallback, Settings settings)
    : primary_(std::move(primary)), fallback_(std::move(fallback)), settings_(std::move(settings)), breaker_(settings_.cooldownSec) {
  if (!settings_.log) settings_.log = [](const std::string&) {};
}

ChatResponse FallbackModelBackend::run(DecoratedCall& call) {
  if (const auto cause = breaker_.check(settings_.nowMs())) {
    settings_.log(fmt::format("model backend: {} still in cooldown after a reachability failure, using {} without retrying it",
                              settings_.primaryName, settings_.fallbackName));
    return fallBack(call, *cause);
  }
  std::optional<FallbackCause> cause;
  try {
    auto response = call.runOn(*primary_);
    response.servedBy = settings_.primaryName;
    response.servedByFallback = false;
    response.fallbackCause.reset();
    if (!settings_.escalateTruncatedPrimary || !response.truncated || call.isCancelled()) return response;
    return escalated(call, std::move(response));
  } catch (const std::exception& error) {
    throwIfStopped(call.stop());
    cause = causeOf(error);
    if (!cause) throw;
  }
  return fallBack(call, cause);
}

ChatResponse FallbackModelBackend::fallBack(DecoratedCall& call, std::optional<FallbackCause> cause) {
  auto response = call.runOn(*fallback_);
  response.servedBy = settings_.fallbackName;
  response.servedByFallback = true;
  response.fallbackCause = cause;
  return response;
}

ChatResponse FallbackModelBackend::escalated(DecoratedCall& call, ChatResponse cutOff) {
  const auto& [primaryName, fallbackName, cooldownSec, escalates, nowMs, log] = settings_;
  log(fmt::format("model backend: {}'s reply was cut off (truncated, {} reply chars) -- re-running this call on {}", primaryName,
                  Text::count(cutOff.text), fallbackName));
  try {
    auto response = fallBack(call, std::nullopt);
    response.usage = ChatUsage::combining(cutOff.usage, response.usage);
    return response;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    throwIfStopped(call.stop());
    log(fmt::format("model backend: {} failed too ({}) -- keeping {}'s truncated reply", fallbackName, describeError(error), primaryName));
    return cutOff;
  }
}

std::optional<FallbackCause> FallbackModelBackend::causeOf(const std::exception& error) {
  const auto& [primaryName, fallbackName, cooldownSec, escalates, nowMs, log] = settings_;
  if (const auto* service = dynamic_cast<const CoachServiceError*>(&error)) {
    // The service itself is well: it paces this person, and the next call may be answered again.
    if (service->kind() == CoachServiceError::Kind::routeDirective) return FallbackCause::paced;
    if (service->kind() == CoachServiceError::Kind::rateLimited) {
      log(fmt::format("model backend: {} rate-limited this call — {} answers it; the next call asks {} again", primaryName, fallbackName,
                      primaryName));
      return FallbackCause::paced;
    }
  }
  if (!isRetryable(error)) return std::nullopt;
  breaker_.open(nowMs(), FallbackCause::unreachable);
  log(fmt::format("model backend: {} unreachable ({}) — falling back to {} for this turn, and for the next {}s", primaryName,
                  describeError(error), fallbackName, static_cast<std::int64_t>(cooldownSec)));
  return FallbackCause::unreachable;
}

}  // namespace halvo
