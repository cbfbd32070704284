#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Records/CoachCorrection.h"

/// A tool call's arguments, read. They come from a model: data only, of any shape. Each reader answers absent for a call that is not
/// usable.
namespace halvo {

struct WriteCurrentIntentionArguments {
  std::string notes = {};
  std::optional<int> horizonMinutes = {};
  /// Absent for blank notes, and for a horizon that was given and is no usable number of minutes.
  static std::optional<WriteCurrentIntentionArguments> parse(const JSONValue& arguments);
  bool operator==(const WriteCurrentIntentionArguments&) const = default;
};

/// What the chat's undo control holds of a written intention.
struct ProposedWrite {
  std::string tool = {};
  std::string notes = {};
  std::optional<int> horizonMinutes = {};
  std::int64_t atMs = 0;
  bool operator==(const ProposedWrite&) const = default;
};

struct CorrectJudgmentArguments {
  std::string app = {}, project = {};
  static std::optional<CorrectJudgmentArguments> parse(const JSONValue& arguments);
};

struct RememberCorrectionArguments {
  std::string correction = {};                          ///< empty when it was missing
  std::optional<CoachCorrection::Lasts> lasts = {};  ///< never supplied for them
  std::optional<CoachCorrection::Scope> scope = {};
  static RememberCorrectionArguments parse(const JSONValue& arguments);
};

struct ProposeOptionsArguments {
  struct Option {
    std::string id = {}, label = {};
    std::optional<std::string> hint = {};
  };
  std::string setting = {}, title = {}, message = {};
  std::vector<Option> options = {};  ///< the usable ones: an id and a label that are not blank, no id twice
  static ProposeOptionsArguments parse(const JSONValue& arguments);
};

/// A link between an app and a project counts only when the user stated it.
namespace CorrectJudgmentGuard {
enum class Verdict { allowed, bareAnswerToOwnQuestion };
/// Refuses when the user's last message is a bare yes or no and what the coach said before it was a question.
Verdict verdict(const std::vector<ChatMessage>& conversation);
bool isBareAnswer(std::string_view text);
}  // namespace CorrectJudgmentGuard

/// The short line that the chat shows for a call.
namespace CoachToolCallDisplay {
inline constexpr std::size_t argumentCap = 80;  ///< characters
std::string line(const ToolCall& call);
}  // namespace CoachToolCallDisplay

}  // namespace halvo
