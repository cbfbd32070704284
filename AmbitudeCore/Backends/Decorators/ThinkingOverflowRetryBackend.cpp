#include "AmbitudeCore/Backends/Decorators/ThinkingOverflowRetryBackend.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

ThinkingOverflowRetryBackend::ThinkingOverflowRetryBackend(std::shared_ptr<ModelBackend> wrapped, std::string name, LogSink log)
    : wrapped_(std::move(wrapped)), name_(std::move(name)), log_(std::move(log)) {
  if (!log_) log_ = [](const std::string&) {};
}

ChatResponse ThinkingOverflowRetryBackend::run(DecoratedCall& call) {
  auto first = call.runOn(*wrapped_);
  if (!call.options().think || !first.truncated || call.isCancelled()) return first;
  log_(
      fmt::format("{}: reply cut off with thinking on ({} thinking chars, {} reply chars) -- the model's context filled before it "
                  "answered. Retrying once with thinking off.",
                  name_, Text::count(first.thinking), Text::count(first.text)));
  auto options = call.options();
  options.think = false;
  try {
    auto second = call.runOn(*wrapped_, options);
    if (second.truncated) log_(fmt::format("{}: the thinking-off retry was cut off too ({} reply chars)", name_, Text::count(second.text)));
    second.usage = ChatUsage::combining(first.usage, second.usage);
    return second;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    throwIfStopped(call.stop());
    log_(fmt::format("{}: the thinking-off retry failed ({}) -- keeping the truncated first reply", name_, describeError(error)));
    return first;
  }
}

}  // namespace halvo
