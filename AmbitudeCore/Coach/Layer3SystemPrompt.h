#pragma once

#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

namespace Layer3SystemPrompt {
/// The character, then the user's own note, then what memory holds, each behind a blank line. It changes only when one of them does, never
/// from one wake to the next: the prompt's prefix stays cached.
std::string build(const std::string& base, const std::optional<std::string>& instructions, const std::vector<std::string>& memoryNotes);
}  // namespace Layer3SystemPrompt

namespace Layer3PromptVariant {
struct Request {
  std::vector<ChatMessage> messages = {};
  std::vector<ToolSpec> tools = {};
  bool operator==(const Request&) const = default;
};
/// A request fit for the local model: neighbours of one role become one message with a blank line between, since local templates want the
/// roles to alternate. Messages of a tool call stay as they are, and nothing else changes.
Request forLocalModel(std::vector<ChatMessage> messages, std::vector<ToolSpec> tools);
}  // namespace Layer3PromptVariant

}  // namespace halvo
