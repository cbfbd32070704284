#include "AmbitudeCore/Backends/NonThinkingModelBackend.h"

namespace halvo {
namespace {

ChatOptions withoutThinking(ChatOptions options) {
  options.think = false;
  return options;
}

}  // namespace

ChatResponse NonThinkingModelBackend::chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                           const ChatOptions& options, const std::stop_token& stop) {
  return wrapped_->chat(messages, tools, withoutThinking(options), stop);
}

ChatResponse NonThinkingModelBackend::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                                 const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  return wrapped_->chatStream(messages, tools, withoutThinking(options), onDelta, stop);
}

}  // namespace halvo
