#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"

/// Fitting a conversation into a small, fixed context: estimated first, counted when in doubt, and the oldest exchanges left out rather
/// than the call failed. Pure.
namespace halvo::LocalContextFit {

/// Sends of one call, the first included.
inline constexpr int maxAttempts = 6;

/// What the server counted against what it holds, in tokens.
struct Overflow {
  std::int64_t promptTokens = 0;
  std::int64_t contextTokens = 0;
  bool operator==(const Overflow&) const = default;
};

struct Trim {
  std::vector<ChatMessage> messages = {};
  std::size_t droppedMessages = 0;
  bool operator==(const Trim&) const = default;
};

/// Tokens kept free for the reply: a quarter of the context, `maxTokens` at most, 256 at least.
std::int64_t outputReserve(std::int64_t contextTokens, std::int64_t maxTokens);

/// A message's size in user-perceived characters: content, thinking and calls, and 16 for its frame.
std::int64_t characterWeight(const ChatMessage& message);

/// True when three characters a token would not leave the reserve: then the tokens are worth counting.
bool mayNeedCounting(const std::vector<ChatMessage>& messages, std::int64_t contextTokens, std::int64_t maxTokens);

/// What an `httpError` 400 of type "exceed_context_size_error" says; absent for any other error and for figures below 1.
std::optional<Overflow> overflow(const ModelBackendError& error);

/// The conversation without its oldest groups, as many as the excess asks for. A call and its answers go together; system messages and the
/// last group always stay. Absent when nothing has to go or nothing may.
std::optional<Trim> trimmed(const std::vector<ChatMessage>& messages, const Overflow& overflow, std::int64_t reserve);

}  // namespace halvo::LocalContextFit
