#include "AmbitudeCore/Backends/AlternatingRoles.h"

namespace halvo::AlternatingRoles {
namespace {

bool isPlain(const ChatMessage& message) { return !message.toolCalls && !message.toolName && message.role != ChatRole::tool; }

}  // namespace

std::vector<ChatMessage> merged(std::vector<ChatMessage> messages) {
  std::vector<ChatMessage> result;
  for (auto& message : messages) {
    if (!result.empty() && result.back().role == message.role && isPlain(result.back()) && isPlain(message))
      result.back().content += "\n\n" + message.content;
    else
      result.push_back(std::move(message));
  }
  return result;
}

}  // namespace halvo::AlternatingRoles
