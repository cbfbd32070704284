#include "AmbitudeCore/Backends/Decorators/DecoratedCall.h"

#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

ChatResponse DecoratedCall::runOn(ModelBackend& backend, const ChatOptions& options) {
  throwIfStopped(stop());
  if (!arguments_.onDelta) return backend.chat(arguments_.messages, arguments_.tools, options, stop());
  progress_.beginAttempt();
  return backend.chatStream(
      arguments_.messages, arguments_.tools, options,
      [this](const ModelStreamDelta& delta) { (*arguments_.onDelta)(progress_.passedOn(delta)); }, stop());
}

ChatResponse DecoratingModelBackend::chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                          const ChatOptions& options, const std::stop_token& stop) {
  DecoratedCall call({.messages = messages, .tools = tools, .options = options, .stop = stop});
  return run(call);
}

ChatResponse DecoratingModelBackend::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                                const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  DecoratedCall call({.messages = messages, .tools = tools, .options = options, .onDelta = &onDelta, .stop = stop});
  return run(call);
}

}  // namespace halvo
