#pragma once

#include <functional>
#include <memory>

#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo {

/// Another backend that gets every conversation prepared for it: redacted, or in the form its template wants.
class PreparingModelBackend : public ModelBackend {
 public:
  using Prepare = std::function<std::vector<ChatMessage>(const std::vector<ChatMessage>&)>;
  PreparingModelBackend(std::shared_ptr<ModelBackend> wrapped, Prepare prepare)
      : wrapped_(std::move(wrapped)), prepare_(std::move(prepare)) {}

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override {
    return wrapped_->chat(prepare_(messages), tools, options, stop);
  }
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override {
    return wrapped_->chatStream(prepare_(messages), tools, options, onDelta, stop);
  }

 private:
  std::shared_ptr<ModelBackend> wrapped_;
  Prepare prepare_;
};

}  // namespace halvo
