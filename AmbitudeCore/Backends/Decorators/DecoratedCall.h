#pragma once

#include "AmbitudeCore/Backends/Decorators/StreamProgress.h"
#include "AmbitudeCore/Backends/ModelBackend.h"

namespace halvo {

/// One call to a decorator, which may run it several times. Lives as long as the call, and so do the arguments it refers to.
class DecoratedCall {
 public:
  struct Arguments {
    const std::vector<ChatMessage>& messages;
    const std::vector<ToolSpec>& tools;
    const ChatOptions& options;
    const StreamCallback* onDelta = nullptr;  ///< null: a plain call
    const std::stop_token& stop;
  };
  explicit DecoratedCall(const Arguments& arguments) : arguments_(arguments) {}

  const ChatOptions& options() const { return arguments_.options; }
  const std::stop_token& stop() const { return arguments_.stop; }
  bool isCancelled() const { return arguments_.stop.stop_requested(); }

  /// Runs the call on `backend`, streamed if it is. Throws what the backend throws, and `Cancelled` without touching it after a stop.
  ChatResponse runOn(ModelBackend& backend) { return runOn(backend, arguments_.options); }
  ChatResponse runOn(ModelBackend& backend, const ChatOptions& options);

 private:
  Arguments arguments_;
  StreamProgress progress_;
};

/// A backend around others: its plain and its streamed calls take one road.
class DecoratingModelBackend : public ModelBackend {
 public:
  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) final;
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) final;

 protected:
  virtual ChatResponse run(DecoratedCall& call) = 0;
};

}  // namespace halvo
