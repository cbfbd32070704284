#include "AmbitudeCore/Backends/LocalContextFit.h"

#include <algorithm>
#include <numeric>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::LocalContextFit {
namespace {

std::int64_t length(std::string_view text) { return static_cast<std::int64_t>(Text::count(text)); }

std::int64_t argumentsLength(const JSONValue& arguments) {
  try {
    return length(arguments.dump());
  } catch (const JSONEncodingError&) {
    return 2;  // "{}" is what stands in for them
  }
}

std::int64_t totalWeight(const std::vector<ChatMessage>& messages) {
  return std::accumulate(messages.begin(), messages.end(), std::int64_t{0},
                         [](std::int64_t sum, const ChatMessage& message) { return sum + characterWeight(message); });
}

/// Indexes of messages that stand or fall together, in order.
std::vector<std::vector<std::size_t>> groups(const std::vector<ChatMessage>& messages) {
  std::vector<std::vector<std::size_t>> all;
  bool open = false;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const auto& message = messages[i];
    switch (message.role) {
      case ChatRole::system:
        break;
      case ChatRole::user:
        all.push_back({i});
        open = false;
        break;
      case ChatRole::assistant:
        all.push_back({i});
        open = message.toolCalls && !message.toolCalls->empty();
        break;
      case ChatRole::tool:
        if (open)
          all.back().push_back(i);
        else
          all.push_back({i});
        break;
    }
  }
  return all;
}

}  // namespace

std::int64_t outputReserve(std::int64_t contextTokens, std::int64_t maxTokens) {
  return std::max<std::int64_t>(std::min(contextTokens / 4, maxTokens), 256);
}

std::int64_t characterWeight(const ChatMessage& message) {
  auto weight = length(message.content) + 16;
  if (message.thinking) weight += length(*message.thinking);
  if (message.toolCalls)
    for (const auto& call : *message.toolCalls) weight += length(call.name) + argumentsLength(call.arguments);
  return weight;
}

bool mayNeedCounting(const std::vector<ChatMessage>& messages, std::int64_t contextTokens, std::int64_t maxTokens) {
  return contextTokens - outputReserve(contextTokens, maxTokens) < totalWeight(messages) / 3;
}

std::optional<Overflow> overflow(const ModelBackendError& error) {
  constexpr std::string_view type = "exceed_context_size_error";
  if (error.kind() != ModelBackendError::Kind::httpError || error.status() != 400 || error.text().find(type) == std::string::npos)
    return std::nullopt;
  const auto body = JSONValue::parse(error.text());
  const auto* found = body ? body->find("error") : nullptr;
  const auto* members = found ? found->objectValue() : nullptr;
  if (!members) return std::nullopt;
  const auto prompt = members->integer("n_prompt_tokens"), context = members->integer("n_ctx");
  if (!prompt || !context || *prompt < 1 || *context < 1) return std::nullopt;
  return Overflow{.promptTokens = *prompt, .contextTokens = *context};
}

std::optional<Trim> trimmed(const std::vector<ChatMessage>& messages, const Overflow& overflow, std::int64_t reserve) {
  const auto excess = overflow.promptTokens - (overflow.contextTokens - reserve);
  const auto all = groups(messages);
  if (excess < 1 || all.empty()) return std::nullopt;

  const auto tokensPerChar =
      static_cast<double>(overflow.promptTokens) / static_cast<double>(std::max<std::int64_t>(totalWeight(messages), 1));
  std::vector<bool> dropped(messages.size(), false);
  Trim trim;
  double droppedTokens = 0;
  for (std::size_t g = 0; g + 1 < all.size() && droppedTokens < static_cast<double>(excess); ++g) {
    for (const auto index : all[g]) {
      dropped[index] = true;
      ++trim.droppedMessages;
      droppedTokens += static_cast<double>(characterWeight(messages[index])) * tokensPerChar;
    }
  }
  if (trim.droppedMessages == 0) return std::nullopt;
  for (std::size_t i = 0; i < messages.size(); ++i)
    if (!dropped[i]) trim.messages.push_back(messages[i]);
  return trim;
}

}  // namespace halvo::LocalContextFit
