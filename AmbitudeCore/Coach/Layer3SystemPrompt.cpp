#include "AmbitudeCore/Coach/Layer3SystemPrompt.h"

#include <utility>

namespace halvo {

std::string Layer3SystemPrompt::build(const std::string& base, const std::optional<std::string>& instructions,
                                      const std::vector<std::string>& memoryNotes) {
  auto text = base;
  if (instructions) text += "\n\n" + *instructions;
  for (const auto& note : memoryNotes) text += "\n\n" + note;
  return text;
}

namespace Layer3PromptVariant {

namespace {

bool isPlain(const ChatMessage& message) { return !message.toolCalls && !message.toolName && message.role != ChatRole::tool; }

}  // namespace

Request forLocalModel(std::vector<ChatMessage> messages, std::vector<ToolSpec> tools) {
  Request request{.tools = std::move(tools)};
  for (auto& message : messages) {
    auto& merged = request.messages;
    if (!merged.empty() && merged.back().role == message.role && isPlain(merged.back()) && isPlain(message))
      merged.back().content += "\n\n" + message.content;
    else
      merged.push_back(std::move(message));
  }
  return request;
}

}  // namespace Layer3PromptVariant

}  // namespace halvo
