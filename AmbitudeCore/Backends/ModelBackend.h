#pragma once

#include <functional>
#include <stop_token>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

using StreamCallback = std::function<void(const ModelStreamDelta&)>;

/// Any model: the local server, a remote service, a decorator around another. Shared between threads; keeps no state of a call.
class ModelBackend {
 public:
  virtual ~ModelBackend() = default;

  /// One reply. Throws `ModelBackendError`, or `Cancelled` promptly after the token's stop.
  virtual ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                            const std::stop_token& stop) = 0;

  /// The same reply, with `onDelta` called on the caller's thread for each piece. By default one delta with all of it.
  virtual ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                                  const StreamCallback& onDelta, const std::stop_token& stop);
};

}  // namespace halvo
