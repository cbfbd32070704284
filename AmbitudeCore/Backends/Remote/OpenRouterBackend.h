#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/BackendSurroundings.h"
#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterConfig.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterWireHooks.h"
#include "AmbitudeCore/Backends/Remote/ProviderAttribution.h"
#include "AmbitudeCore/Backends/Routing/StickyProviderSelector.h"
#include "AmbitudeCore/Backends/StreamAccumulator.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// The remote chat-completions service. Only redacted text goes out, whatever the server. A call that fails at the provider it was pinned
/// to is sent once more, to another one; in a stream the first delta of that attempt takes back what the first attempt showed. Keeps
/// nothing of a call; the choice of provider lives in the selector. The key is in no log line, error or dump.
class OpenRouterBackend : public ModelBackend {
 public:
  static constexpr std::string_view displayName = "openrouter";
  /// Most characters of a server's error text that an error carries on.
  static constexpr std::size_t errorTextLimit = 2000;
  using Surroundings = BackendSurroundings;
  using ProviderAttributedFailure = halvo::ProviderAttributedFailure;
  using StreamAccumulator = halvo::StreamAccumulator;

  /// `transport` outlives the backend. `selector` is shared by every backend of a program, so that a rebuilt one keeps its providers;
  /// null: the service chooses within the configuration.
  OpenRouterBackend(OpenRouterConfig config, HTTPTransport& transport, std::shared_ptr<StickyProviderSelector> selector,
                    Surroundings surroundings, OpenRouterWireHooks hooks = {});

  ChatResponse chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                    const std::stop_token& stop) override;
  ChatResponse chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token& stop) override;

  const OpenRouterConfig& config() const { return config_; }

 private:
  struct Call;

  ChatResponse run(const Call& call);
  ChatResponse send(const Call& call, const std::optional<std::string>& pinned);
  ChatResponse sendElsewhere(const Call& call, const std::vector<std::string>& pool, const ProviderAttributedFailure& failure);
  HTTPRequest request(const Call& call, const std::optional<std::string>& pinned) const;
  /// For an error payload whose code is one of a provider's failures: the error that a status of that number would have been.
  void throwForPayload(const JSONValue& payload, const std::optional<std::string>& pinned) const;
  [[noreturn]] void throwForAnswer(const HTTPResponse& answer, const std::optional<std::string>& pinned) const;
  void throwIfProviderFailed(int status, std::string_view body, const std::string& text, const std::optional<std::string>& pinned) const;
  void askHooks(const HTTPResponse& answer) const;
  std::string withoutSecrets(std::string text) const;
  void log(const std::string& line) const;

  OpenRouterConfig config_;
  HTTPTransport& transport_;
  std::shared_ptr<StickyProviderSelector> selector_;
  Surroundings surroundings_;
  OpenRouterWireHooks hooks_;
};

}  // namespace halvo
