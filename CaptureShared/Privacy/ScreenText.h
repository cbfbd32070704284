#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text that came from a screen, a window title or a page, made fit to stand in a prompt: one line, inside quotes, unable to close them or
/// to end a turn.
namespace halvo::ScreenText {

inline constexpr std::size_t reasonCap = 300;  ///< characters of a classifier's reason in a prompt
inline constexpr std::size_t titleCap = 120;   ///< characters of a window title in a prompt

/// Runs of control, format and separator characters become one blank, ends are trimmed, every shape of double quote becomes ʺ (U+02BA),
/// turn markers are broken, and a text longer than `cap` characters is cut with "…" behind it.
std::string sanitize(std::string_view text, std::size_t cap);
/// `sanitize` between plain double quotes.
std::string quoted(std::string_view text, std::size_t cap);

/// The model server reads markers such as "<|turn>", "<turn|>", "<start_of_turn>" or "</s>" inside a message as real ones: a blank behind
/// the "<" breaks them. Changes nothing else.
std::string breakTurnMarkers(std::string_view text);

}  // namespace halvo::ScreenText
