#include "AmbitudeCore/Coach/CoachSanityChecks.h"

#include <algorithm>
#include <array>
#include <deque>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/CompiledRegexCache.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::CoachSanityChecks {

namespace {

constexpr std::array<std::string_view, 6> channelMarkers{
    "<|tool_response>", "<｜tool▁calls▁begin｜>", "<｜tool▁call▁begin｜>", "<｜tool▁sep｜>", "<｜tool▁calls▁end｜>", "<｜tool▁call▁end｜>",
};

/// A text that still has something to strip after this many rounds was made to: it is withheld.
constexpr int maxStripRounds = 8;

/// What may stand between "<" and a word of the mark-up dialect.
const std::string dialect = "(?:｜DSML｜|\\|\\|DSML\\|\\|)?";

std::string anyOf(const CoachTools::Names& names) {
  std::string alternatives;
  for (const auto& name : names) alternatives += (alternatives.empty() ? "" : "|") + name;
  return "(?:" + alternatives + ")";
}

/// The patterns of everything that is taken out, in order.
std::vector<std::string> stripPatterns() {
  const auto names = anyOf(CoachTools::recognizedToolNames());
  const std::string open = "<" + dialect, close = "</" + dialect;
  return {
      "```json[^`]*?\"(?:action|call)\"\\s*:\\s*\"" + names + "\"[^`]*```",
      "\\{(?:[^{}]|\\{[^{}]*\\})*\"(?:action|call)\"\\s*:\\s*\"" + names + "\"(?:[^{}]|\\{[^{}]*\\})*\\}",
      open + "invoke\\s+name\\s*=\\s*\"[^\"]*\"[^>]*>.*?</(?:｜DSML｜|\\|\\|DSML\\|\\|)?invoke\\s*>",
      open + "invoke\\s+name\\s*=\\s*\"[^\"]*\"[^>]*/>",
      open + "parameter\\s+name\\s*=\\s*\"[^\"]*\"[^>]*>.*?</(?:｜DSML｜|\\|\\|DSML\\|\\|)?parameter\\s*>",
      open + "parameter\\s+name\\s*=\\s*\"[^\"]*\"[^>]*/>",
      open + "function_calls\\s*>.*?</(?:｜DSML｜|\\|\\|DSML\\|\\|)?function_calls\\s*>",
      open + "tool_calls\\s*>.*?</(?:｜DSML｜|\\|\\|DSML\\|\\|)?tool_calls\\s*>",
      open + "(?:invoke|parameter|function_calls|tool_calls)\\b[^>]*>",
      close + "(?:invoke|parameter|function_calls|tool_calls)\\s*>",
      "\\b" + names + "\\s*(?:\\([^()]*\\)|\\{[^{}]*\\})",
  };
}

/// The last results of the strip, so that a stream that repaints the same text costs nothing.
class LeakStripMemo {
 public:
  std::optional<std::string> find(std::string_view text) {
    const std::lock_guard hold(mutex_);
    const auto known = std::find_if(results_.begin(), results_.end(), [&](const auto& entry) { return entry.first == text; });
    return known == results_.end() ? std::nullopt : std::optional(known->second);
  }
  void keep(std::string_view text, std::string result) {
    const std::lock_guard hold(mutex_);
    if (results_.size() >= 16) results_.pop_front();
    results_.emplace_back(text, std::move(result));
  }

 private:
  std::mutex mutex_;
  std::deque<std::pair<std::string, std::string>> results_;
};

LeakStripMemo& memo() {
  static LeakStripMemo results;
  return results;
}

bool calls(const ChatResponse& response, std::string_view name) {
  return std::any_of(response.toolCalls.begin(), response.toolCalls.end(),
                     [&](const ToolCall& call) { return CoachTools::canonicalToolName(call.name) == name; });
}

}  // namespace

std::size_t longestRun(std::string_view text) {
  std::size_t longest = 0, run = 0;
  std::string_view last;
  while (!text.empty()) {
    const auto character = text.substr(0, std::max<std::size_t>(1, Text::prefix(text, 1).size()));
    run = character == last ? run + 1 : 1;
    last = character;
    longest = std::max(longest, run);
    text.remove_prefix(character.size());
  }
  return longest;
}

std::optional<std::string> degenerationReason(std::string_view text) {
  const auto trimmed = Text::trim(text);
  if (trimmed.empty()) return std::nullopt;
  if (const auto length = Text::count(trimmed); length > maxCoachReplyCharacters)
    return fmt::format("length={} limit={}", length, maxCoachReplyCharacters);
  if (const auto run = longestRun(trimmed); run >= maxRepeatedCharacterRun)
    return fmt::format("repeated_run={} limit={}", run, maxRepeatedCharacterRun);
  return std::nullopt;
}

std::string stripSilenceSentinel(std::string_view text) {
  return std::string(Text::trim(Text::replaceAll(std::string(text), CoachTools::silenceSentinel, "")));
}
bool showsSilenceSentinel(std::string_view text) { return text.find(CoachTools::silenceSentinel) != std::string_view::npos; }
bool hasAnySpokenContent(const ChatResponse& response) {
  return !response.toolCalls.empty() || !stripSilenceSentinel(response.text).empty();
}

std::string stripLeakedToolCallSyntaxUncached(std::string_view text) {
  static const std::vector<std::string> patterns = stripPatterns();
  std::string out(text);
  try {
    // What is taken out may bring together what makes another: again until nothing is left to take.
    for (int round = 0; round < maxStripRounds; ++round) {
      const auto before = out.size();
      for (const auto marker : channelMarkers) out = Text::replaceAll(std::move(out), marker, "");
      for (const auto& pattern : patterns) out = CompiledRegexCache::get(pattern, Regex::Flag::dotAll)->replaceAll(out, "");
      if (out.size() == before) return out.size() == text.size() ? out : std::string(Text::trim(out));
    }
  } catch (const RegexLimitExceeded&) {
  }
  return "";
}

std::string stripLeakedToolCallSyntax(std::string_view text) {
  if (auto known = memo().find(text)) return *known;
  auto result = stripLeakedToolCallSyntaxUncached(text);
  memo().keep(text, result);
  return result;
}

bool showsLeakedToolCallAttempt(std::string_view text) { return stripLeakedToolCallSyntax(text) != text; }

bool showsLeakedStateChangingToolCall(std::string_view text) {
  static const auto names = anyOf(CoachTools::stateChangingToolNames());
  try {
    return CompiledRegexCache::get("\"(?:action|call)\"\\s*:\\s*\"" + names + "\"")->matches(text) ||
           CompiledRegexCache::get("<(?:｜DSML｜|\\|\\|DSML\\|\\|)?invoke\\s+name\\s*=\\s*\"" + names + "\"")->matches(text) ||
           CompiledRegexCache::get("\\b" + names + "\\s*(?:\\([^()]*\\)|\\{[^{}]*\\})")->matches(text);
  } catch (const RegexLimitExceeded&) {
    return true;
  }
}

bool isToolNameLeak(const ChatResponse& response) { return CoachTools::recognizedToolNames().contains(Text::trim(response.text)); }

bool missingOpenUIForACheckerCheckIn(bool isCheckerChannel, const ChatResponse& response) {
  return isCheckerChannel && !stripSilenceSentinel(response.text).empty() && !calls(response, "open_ui");
}
bool missingCloseUIAfterAConfirmedTask(bool uiWasOpen, const ChatResponse& response) {
  return uiWasOpen && calls(response, "write_current_intention") && !calls(response, "close_ui");
}

}  // namespace halvo::CoachSanityChecks
