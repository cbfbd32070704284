#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// A reply looked at before anyone sees it: runaway repetition, silence, tool calls written as text.
namespace halvo::CoachSanityChecks {

inline constexpr std::size_t maxCoachReplyCharacters = 2000;
inline constexpr std::size_t maxRepeatedCharacterRun = 20;

/// "length=N limit=2000" or "repeated_run=N limit=20"; absent for a sound text and for an empty one. White space at the ends does not
/// count.
std::optional<std::string> degenerationReason(std::string_view text);
/// The longest run of one repeated character.
std::size_t longestRun(std::string_view text);

/// Without the silence character, trimmed.
std::string stripSilenceSentinel(std::string_view text);
bool showsSilenceSentinel(std::string_view text);
/// Whether anything of a reply can reach someone: words, or a tool call.
bool hasAnySpokenContent(const ChatResponse& response);

/// The text without tool calls that were written into it: channel markers, invocations, JSON attempts and the mark-up dialect. It does not
/// look at context. A text that the patterns give up on comes back empty: what can't be checked is not shown. Cached for a stream that
/// repaints.
std::string stripLeakedToolCallSyntax(std::string_view text);
std::string stripLeakedToolCallSyntaxUncached(std::string_view text);
bool showsLeakedToolCallAttempt(std::string_view text);
/// The same shapes with the name of a tool that changes something.
bool showsLeakedStateChangingToolCall(std::string_view text);
/// The reply is nothing but a tool's name.
bool isToolNameLeak(const ChatResponse& response);

/// The older road's question: the checker spoke up on its own and did not open the window.
bool missingOpenUIForACheckerCheckIn(bool isCheckerChannel, const ChatResponse& response);
/// The older road's question: an intention was confirmed and the window was left open.
bool missingCloseUIAfterAConfirmedTask(bool uiWasOpen, const ChatResponse& response);

}  // namespace halvo::CoachSanityChecks
