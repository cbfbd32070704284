#include "AmbitudeCore/Coach/Layer3SystemPrompt.h"

#include <utility>

#include "AmbitudeCore/Backends/AlternatingRoles.h"

namespace halvo {

std::string Layer3SystemPrompt::build(const std::string& base, const std::optional<std::string>& instructions,
                                      const std::vector<std::string>& memoryNotes) {
  auto text = base;
  if (instructions) text += "\n\n" + *instructions;
  for (const auto& note : memoryNotes) text += "\n\n" + note;
  return text;
}

namespace Layer3PromptVariant {

Request forLocalModel(std::vector<ChatMessage> messages, std::vector<ToolSpec> tools) {
  return {.messages = AlternatingRoles::merged(std::move(messages)), .tools = std::move(tools)};
}

}  // namespace Layer3PromptVariant

}  // namespace halvo
