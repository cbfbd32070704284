#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

/// A streamed reply as it grows. Pure: one payload at a time goes in, the whole reply comes out at the end.
class StreamAccumulator {
 public:
  /// Takes one payload of the stream and answers what it added for a reader; absent when it added neither text nor thinking. Payloads of
  /// another shape add nothing. An error payload is the caller's to see first (`ChatCompletionsWire::errorMessage`).
  std::optional<ModelStreamDelta> feed(const JSONValue& payload);

  /// A "finish_reason" was seen.
  bool isFinished() const { return provenance_.finishReason.has_value(); }
  /// At least one payload carried choices.
  bool hasChoices() const { return hasChoices_; }

  /// The whole reply. Tool calls stand in the order of their indexes; arguments that do not parse become an empty object, a call without a
  /// name is left out.
  ChatResponse response() const;

 private:
  struct ToolFragment {
    std::string name = {};
    std::string arguments = {};
  };

  void feedToolCalls(const JSONValue& delta);

  std::string text_, thinking_;
  bool truncated_ = false;
  bool hasChoices_ = false;
  std::optional<ChatUsage> usage_;
  ChatProvenance provenance_;
  std::vector<TokenLogprob> logprobs_;
  std::map<std::int64_t, ToolFragment> toolFragments_;
  JSONValue::Array reasoningDetails_;
};

}  // namespace halvo
