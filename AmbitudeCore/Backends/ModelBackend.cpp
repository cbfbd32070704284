#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo {

ChatResponse ModelBackend::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                      const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  auto response = chat(messages, tools, options, stop);
  onDelta({.text = response.text, .thinking = response.thinking});
  return response;
}

}  // namespace halvo
