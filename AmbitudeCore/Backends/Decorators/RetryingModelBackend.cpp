#include "AmbitudeCore/Backends/Decorators/RetryingModelBackend.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"

namespace halvo {
namespace {

constexpr double longestTickSec = 1;

bool isTimeout(const std::exception& error) {
  const auto* backendError = dynamic_cast<const ModelBackendError*>(&error);
  return backendError && backendError->isTimeout();
}

}  // namespace

RetryingModelBackend::RetryingModelBackend(std::shared_ptr<ModelBackend> wrapped, Settings settings)
    : wrapped_(std::move(wrapped)), settings_(std::move(settings)) {
  if (!settings_.log) settings_.log = [](const std::string&) {};
  if (settings_.maxAttempts > 1 && settings_.backoffSeconds.empty())
    throw std::logic_error("RetryingModelBackend: no schedule for the retries of " + settings_.name);
}

void RetryingModelBackend::sleep(double sec, const std::stop_token& stop) {
  Clock::system().wait(std::max(sec, 0.0), stop);
  throwIfStopped(stop);
}

bool RetryingModelBackend::waited(double sec, const std::stop_token& stop) const {
  for (auto left = sec; left > 0; left -= longestTickSec) {
    if (!settings_.shouldKeepWaiting()) return false;
    settings_.sleepTick(std::min(left, longestTickSec), stop);
  }
  return true;
}

ChatResponse RetryingModelBackend::run(DecoratedCall& call) {
  const auto& name = settings_.name;
  for (int attempt = 0;; ++attempt) {
    try {
      return call.runOn(*wrapped_);
    } catch (const std::exception& error) {
      throwIfStopped(call.stop());
      if (!isRetryable(error) || attempt + 1 >= settings_.maxAttempts) throw;
      if (attempt > 0 && isTimeout(error)) {
        settings_.log(
            fmt::format("{}: timed out on attempt {}/{} after already paying the full wait -- not retrying further, escalating "
                        "instead of burning another full-length wait",
                        name, attempt + 1, settings_.maxAttempts));
        throw;
      }
      const auto wait = settings_.backoffSeconds[std::min(settings_.backoffSeconds.size() - 1, static_cast<std::size_t>(attempt))];
      settings_.log(fmt::format("{} unreachable (attempt {}/{}): {} -- retrying in up to {}s", name, attempt + 1, settings_.maxAttempts,
                                describeError(error), static_cast<std::int64_t>(wait)));
      if (!waited(wait, call.stop())) {
        settings_.log(name + ": retry wait interrupted -- giving up on this call rather than waiting further");
        throw;
      }
    }
  }
}

}  // namespace halvo
