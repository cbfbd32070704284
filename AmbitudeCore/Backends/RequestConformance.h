#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"

/// Rules that model servers hold a conversation to, checked before it is sent, where the mistake can still be named.
namespace halvo::RequestConformance {

enum class Rule {
  unansweredToolCall,        ///< a tool call with no tool message positioned to answer it
  orphanToolMessage,         ///< a tool message that follows no pending call
  toolCallIdMismatch,        ///< an encoded tool message whose id is not the one it is positioned to answer
  systemNotFirst,            ///< a system message anywhere but at index 0
  malformedToolSchema,       ///< parameters that are no object schema with properties
  unsupportedResponseFormat  ///< a response schema on a route not known to enforce it
};

/// `what()` is "request conformance [<rule>] <detail>".
class Violation : public std::runtime_error {
 public:
  Violation(Rule rule, std::string detail);
  Rule rule() const { return rule_; }
  const std::string& detail() const { return detail_; }

 private:
  Rule rule_;
  std::string detail_;
};

/// True when AMBITCAP_VALIDATE_REQUESTS is exactly "1". Backends call the first two checks only then, the third always.
bool isEnabled(const Environment& environment);

/// Throws `Violation` for the first rule broken: system messages, then tool calls and their answers, then tool schemas.
void validate(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools);

/// The same idea over the message array of an encoded body: calls and answers matched by id. Throws `Violation`.
void validateEncodedOpenAIShape(const JSONValue::Array& encodedMessages);

enum class SchemaRequest { none, requested };
enum class SchemaSupport { unknown, enforced };
/// Throws `Violation` when a schema is requested where none is known to be enforced.
void validateResponseFormat(SchemaRequest request, SchemaSupport support);

}  // namespace halvo::RequestConformance

namespace halvo {

template <>
struct RawValues<RequestConformance::Rule> {
  using Rule = RequestConformance::Rule;
  static constexpr std::array table{std::pair{Rule::unansweredToolCall, "unanswered_tool_call"},
                                    std::pair{Rule::orphanToolMessage, "orphan_tool_message"},
                                    std::pair{Rule::toolCallIdMismatch, "tool_call_id_mismatch"},
                                    std::pair{Rule::systemNotFirst, "system_not_first"},
                                    std::pair{Rule::malformedToolSchema, "malformed_tool_schema"},
                                    std::pair{Rule::unsupportedResponseFormat, "unsupported_response_format"}};
};

}  // namespace halvo
