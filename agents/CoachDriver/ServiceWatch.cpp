#include "agents/CoachDriver/ServiceWatch.h"

#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

template <class F>
ChatResponse ServiceWatch::watched(F&& call) {
  try {
    auto response = std::forward<F>(call)();
    if (const auto event = status_.observeSuccess(clock_.nowMs(), response.servedByFallback)) append_(*event);
    return response;
  } catch (const std::exception& error) {
    // A call that was given up counts for nothing: it is no retryable failure.
    if (const auto event = status_.observe(error, clock_.nowMs())) append_(*event);
    throw;
  }
}

void ServiceWatch::resume(std::span<const EventLogEvent> events) {
  if (!std::exchange(isResumed_, true)) status_.resume(events);
}

ChatResponse ServiceWatch::chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                                const std::stop_token& stop) {
  return watched([&] { return backend_.chat(messages, tools, options, stop); });
}

ChatResponse ServiceWatch::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                      const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  return watched([&] { return backend_.chatStream(messages, tools, options, onDelta, stop); });
}

}  // namespace halvo
