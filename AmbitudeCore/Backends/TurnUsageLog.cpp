#include "AmbitudeCore/Backends/TurnUsageLog.h"

#include <vector>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::TurnUsageLog {

std::string line(const ChatResponse& response) {
  if (!response.usage)
    return "usage: none reported (expected on the local model; on openrouter it means the response carried no usage block)";
  const auto& usage = *response.usage;
  std::vector<std::string> parts{fmt::format("{} call(s)", usage.callCount)};
  if (const auto rate = usage.cacheHitRate())
    parts.push_back(fmt::format("prompt {} ({} cached, {:.1f}% hit)", usage.promptTokens, *usage.cachedPromptTokens, *rate * 100));
  else
    parts.push_back(fmt::format("prompt {} (no cache figure reported)", usage.promptTokens));
  parts.push_back(fmt::format("completion {}", usage.completionTokens));
  if (usage.reasoningTokens)
    parts.push_back(fmt::format("reasoning {}", *usage.reasoningTokens));
  else if (!response.thinking.empty())
    parts.push_back(fmt::format("thinking {} chars", Text::count(response.thinking)));
  else
    parts.push_back("NO REASONING TRACE");
  parts.push_back(usage.costUSD ? fmt::format("cost ${:.6f}", *usage.costUSD) : "cost not reported");
  if (response.provenance && response.provenance->provider) parts.push_back("via " + *response.provenance->provider);
  if (response.provenance && response.provenance->servedModel) parts.push_back(*response.provenance->servedModel);
  if (response.servedByFallback) parts.push_back("SERVED BY FALLBACK");
  return "usage: " + Text::join(parts, ", ");
}

}  // namespace halvo::TurnUsageLog
