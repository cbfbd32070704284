#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// What the practice model answers: fixed rules over the facts that stand in a prompt. It looks at no picture and understands no language,
/// and nothing in its answers claims otherwise. Pure.
namespace halvo::PracticeReplies {

/// Which of the system's prompts a request carries.
enum class Prompt { classifier, description, estimate, reasonCheck, gate, coach, digest, regeneration, other };

/// The parts of a chat request that a reply depends on.
struct Request {
  std::string system = {};  ///< the system message's text, empty without one
  std::string lastRole = {};
  std::string last = {};       ///< the last message's text
  std::string firstUser = {};  ///< the first user message's text
  bool hasImage = false;
  bool wantsJSON = false;  ///< a JSON object or a schema was asked for
  std::optional<JSONValue> schema = {};
  std::vector<std::string> toolNames = {};

  /// Reads a request body; text parts of list contents are joined.
  static Request from(const JSONValue& body);
  bool offers(std::string_view tool) const;
};

struct Reply {
  std::string text = {};
  std::string thinking = {};
  std::vector<ToolCall> toolCalls = {};
  bool operator==(const Reply&) const = default;
};

Prompt prompt(const Request& request);
Reply reply(const Request& request);

/// Each prompt's own rule.
std::string classify(std::string_view message);
std::string estimate(std::string_view message);
std::string reasonCheck(std::string_view message);
std::string gate(std::string_view message);
Reply coach(const Request& request);
/// A period's numbered lines: what was declared or asserted becomes a fact with its line; with both sides heard, one lesson.
std::string digest(std::string_view message);
/// Keeps every candidate, and makes threads of the last twelve facts that begin with "working on ".
std::string regeneration(std::string_view message);
/// The smallest value that meets a JSON schema's required properties.
std::string schemaInstance(const JSONValue& schema);

}  // namespace halvo::PracticeReplies

namespace halvo {

template <>
struct RawValues<PracticeReplies::Prompt> {
  using Prompt = PracticeReplies::Prompt;
  static constexpr std::array table{std::pair{Prompt::classifier, "classifier"},
                                    std::pair{Prompt::description, "description"},
                                    std::pair{Prompt::estimate, "estimate"},
                                    std::pair{Prompt::reasonCheck, "reason-check"},
                                    std::pair{Prompt::gate, "gate"},
                                    std::pair{Prompt::coach, "coach"},
                                    std::pair{Prompt::digest, "digest"},
                                    std::pair{Prompt::regeneration, "regeneration"},
                                    std::pair{Prompt::other, "other"}};
};

}  // namespace halvo
