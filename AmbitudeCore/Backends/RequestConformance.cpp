#include "AmbitudeCore/Backends/RequestConformance.h"

#include <deque>

#include <fmt/format.h>

namespace halvo::RequestConformance {
namespace {

void checkSystemFirst(const std::vector<ChatMessage>& messages) {
  for (std::size_t i = 1; i < messages.size(); ++i)
    if (messages[i].role == ChatRole::system)
      throw Violation(Rule::systemNotFirst, fmt::format("system message at index {}; system content must lead the conversation", i));
}

void checkToolAnswers(const std::vector<ChatMessage>& messages) {
  for (std::size_t i = 0; i < messages.size();) {
    const auto& message = messages[i];
    if (message.role == ChatRole::tool)
      throw Violation(Rule::orphanToolMessage, fmt::format("tool message at index {} (name: {}) answers no preceding assistant tool call",
                                                           i, message.toolName.value_or("unnamed")));
    const auto next = i + 1;
    const std::size_t calls = message.role == ChatRole::assistant && message.toolCalls ? message.toolCalls->size() : 0;
    for (std::size_t k = 0; k < calls; ++k) {
      if (next + k < messages.size() && messages[next + k].role == ChatRole::tool) continue;
      throw Violation(
          Rule::unansweredToolCall,
          fmt::format("assistant at index {} called `{}` (call {} of {}) with no answering tool message; every tool call must be "
                      "answered before the conversation continues",
                      i, (*message.toolCalls)[k].name, k + 1, calls));
    }
    i = next + calls;
  }
}

void checkTool(const ToolSpec& tool) {
  const auto* parameters = tool.parameters.objectValue();
  const auto fail = [&](std::string_view what) {
    throw Violation(Rule::malformedToolSchema, fmt::format("tool `{}` parameters {}", tool.name, what));
  };
  if (!parameters) fail("is not a JSON object");
  if (parameters->string("type") != "object") fail("must declare \"type\": \"object\"");
  const auto* properties = parameters->find("properties");
  if (!properties || !properties->objectValue()) fail("must carry a `properties` object");
}

}  // namespace

Violation::Violation(Rule rule, std::string detail)
    : std::runtime_error(fmt::format("request conformance [{}] {}", rawValue(rule), detail)), rule_(rule), detail_(std::move(detail)) {}

bool isEnabled(const Environment& environment) { return value(environment, "AMBITCAP_VALIDATE_REQUESTS") == "1"; }

void validate(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools) {
  checkSystemFirst(messages);
  checkToolAnswers(messages);
  for (const auto& tool : tools) checkTool(tool);
}

void validateEncodedOpenAIShape(const JSONValue::Array& encodedMessages) {
  std::deque<std::string> pending;
  const auto text = [](const JSONValue& message, std::string_view key, const char* otherwise) {
    const auto* found = message.find(key);
    return found && found->stringValue() ? *found->stringValue() : std::string(otherwise);
  };
  for (std::size_t i = 0; i < encodedMessages.size(); ++i) {
    const auto& message = encodedMessages[i];
    const auto role = text(message, "role", "unknown");
    if (role == "tool") {
      if (pending.empty())
        throw Violation(Rule::orphanToolMessage, fmt::format("encoded tool message at index {} answers no pending call", i));
      const auto got = text(message, "tool_call_id", "<missing>");
      if (got != pending.front())
        throw Violation(Rule::toolCallIdMismatch,
                        fmt::format("encoded tool message at index {} carries tool_call_id {} but is positioned to answer {}", i, got,
                                    pending.front()));
      pending.pop_front();
      continue;
    }
    if (!pending.empty())
      throw Violation(Rule::unansweredToolCall,
                      fmt::format("encoded message at index {} (role: {}) interrupts {} unanswered tool call(s)", i, role, pending.size()));
    const auto* calls = message.find("tool_calls");
    if (calls && calls->arrayValue())
      for (const auto& call : *calls->arrayValue()) pending.push_back(text(call, "id", "<missing>"));
  }
  if (!pending.empty())
    throw Violation(Rule::unansweredToolCall, fmt::format("conversation ends with {} unanswered tool call(s)", pending.size()));
}

void validateResponseFormat(SchemaRequest request, SchemaSupport support) {
  if (request == SchemaRequest::requested && support == SchemaSupport::unknown)
    throw Violation(
        Rule::unsupportedResponseFormat,
        "response_format requested on a route not known to enforce schemas; the request would look successful while the model was "
        "free to ignore the schema");
}

}  // namespace halvo::RequestConformance
