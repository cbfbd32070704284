#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo {

/// How the remote routing service is asked.
struct OpenRouterConfig {
  static constexpr std::string_view defaultHost = "https://openrouter.ai";
  static constexpr std::string_view chatPath = "/api/v1/chat/completions";

  std::string endpoint = std::string(defaultHost) + std::string(chatPath);  ///< the full chat-completions URL
  std::string model = {};
  std::string apiKey = {};                                           ///< empty: no Authorization header
  std::optional<std::string> reasoningEffort = {};                   ///< sent only when a call may think
  double timeoutSec = 300;                                           ///< a plain call as a whole, a streamed one between two pieces
  std::vector<std::string> providerOrder = {};                       ///< slugs, best first; the pool calls are pinned within
  std::optional<std::vector<std::string>> acceptableProviders = {};  ///< slugs the service may choose from when nothing is pinned
  bool allowProviderFallbacks = false;
};

}  // namespace halvo
