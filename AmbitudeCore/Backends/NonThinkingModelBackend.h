#pragma once

#include <memory>

#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo {

/// Another backend with thinking turned off in every call, for small checks that need an answer and not a deliberation.
class NonThinkingModelBackend : public ModelBackend {
 public:
  explicit NonThinkingModelBackend(std::shared_ptr<ModelBackend> wrapping) : wrapped_(std::move(wrapping)) {}

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override;
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override;

 private:
  std::shared_ptr<ModelBackend> wrapped_;
};

}  // namespace halvo
