#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

/// One line of turn-usage.jsonl: what one call to a model used. Holds no text of anyone's.
struct TurnUsageRecord {
  int v = 1;
  std::int64_t atMs = 0;   ///< milliseconds since the epoch
  std::string layer = {};  ///< who called, as "gate" or "coach"
  std::optional<std::string> provider = {}, servedModel = {}, generationID = {};
  int promptTokens = 0, completionTokens = 0;
  std::optional<int> cachedPromptTokens = {}, reasoningTokens = {};
  std::optional<double> costUSD = {};
  int callCount = 1;
  bool servedByFallback = false;
  std::optional<std::string> buildVersion = {};

  struct Call {
    std::string layer = {};
    std::int64_t asOfMs = 0;
    std::optional<std::string> buildVersion = {};
  };
  /// Absent when the response reports no usage.
  static std::optional<TurnUsageRecord> from(const ChatResponse& response, const Call& call);

  /// The row's object; absent fields have no key.
  JSONValue encoded() const;
  /// Absent unless every required key is there with its type. A row without "v" is version 1, without "call_count" one call, without
  /// "served_by_fallback" not a fallback.
  static std::optional<TurnUsageRecord> decode(std::string_view line);

  bool operator==(const TurnUsageRecord&) const = default;
};

}  // namespace halvo
