#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/BackendSurroundings.h"
#include "AmbitudeCore/Backends/LocalContextFit.h"
#include "AmbitudeCore/Backends/ModelBackend.h"
#include "CaptureShared/Foundation/LockedValue.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

struct LocalModelConfig {
  std::string endpoint = {};  ///< the full chat endpoint
  std::string model = {};
  double timeoutSec = 300;    ///< a plain call as a whole, a streamed one between two pieces, and how long a loading server is waited for

  /// `base` with "v1/chat/completions" behind it.
  static std::string chatEndpoint(std::string_view base);
};

/// The local inference server. Its context is small and fixed, so it learns the server's real size, counts when a conversation may not
/// fit, and leaves the oldest exchanges out instead of failing. One instance serves all calls of a program.
class LocalModelBackend : public ModelBackend {
 public:
  static constexpr std::string_view backendName = "local";
  static constexpr std::string_view displayName = "the local model";
  /// Assumed when the server does not tell its size.
  static constexpr std::int64_t assumedContextTokens = 8192;

  using Surroundings = BackendSurroundings;

  /// `transport` outlives the backend.
  LocalModelBackend(LocalModelConfig config, HTTPTransport& transport, Surroundings surroundings);

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override;
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override;

 private:
  struct Call;  // the arguments of one call and its deadline

  ChatResponse run(const Call& call);
  ChatResponse send(const Call& call, const std::vector<ChatMessage>& messages);
  ChatResponse exchange(const Call& call, const HTTPRequest& request);
  std::int64_t contextTokens(const std::stop_token& stop);
  std::optional<std::int64_t> countedTokens(const Call& call);
  void logTrim(const LocalContextFit::Overflow& overflow, std::int64_t reserve, std::size_t dropped, const std::string& ending) const;
  std::optional<JSONValue> ask(const HTTPRequest& request, const std::stop_token& stop);

  LocalModelConfig config_;
  HTTPTransport& transport_;
  Surroundings surroundings_;
  LockedValue<std::optional<std::int64_t>> contextCache_;  // filled by the first success, never refreshed
};

}  // namespace halvo
