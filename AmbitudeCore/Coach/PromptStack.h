#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

/// A window's start that jumps by whole steps, so that the prompt behind it stays the same in between.
namespace PromptWindowQuantization {
/// The number of the step that holds a moment. `stepSec` above 0.
inline std::int64_t index(std::int64_t atMs, double stepSec) {
  return static_cast<std::int64_t>(std::floor(static_cast<double>(atMs) / 1000 / stepSec));
}
/// The moment rounded down to a whole step since the epoch; unchanged when the step is not positive.
inline std::int64_t floor(std::int64_t atMs, double stepSec) {
  return stepSec > 0 ? static_cast<std::int64_t>(stepSec * 1000 * static_cast<double>(index(atMs, stepSec))) : atMs;
}
}  // namespace PromptWindowQuantization

/// The part of a conversation that stays in one place, so that the server's prompt cache survives.
struct PromptStack {
  std::vector<ChatMessage> stable = {};
  std::int64_t rotationIndex = 0;
  std::optional<std::string> lastRotationReason = {};

  /// The system message, what is stable, then the tail.
  std::vector<ChatMessage> request(const std::string& system, const std::vector<ChatMessage>& tail) const {
    std::vector<ChatMessage> messages{ChatMessage::system(system)};
    messages.insert(messages.end(), stable.begin(), stable.end());
    messages.insert(messages.end(), tail.begin(), tail.end());
    return messages;
  }
  void append(ChatMessage message) { stable.push_back(std::move(message)); }
  void append(const std::vector<ChatMessage>& messages) { stable.insert(stable.end(), messages.begin(), messages.end()); }
  void rotate(std::int64_t newIndex, std::string reason, std::vector<ChatMessage> messages) {
    stable = std::move(messages);
    rotationIndex = newIndex;
    lastRotationReason = std::move(reason);
  }
};

}  // namespace halvo
