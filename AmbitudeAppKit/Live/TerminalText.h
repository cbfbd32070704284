#pragma once

#include <string>
#include <string_view>

namespace halvo::TerminalText {

/// Text from anywhere on one line of a terminal: control and format characters (an escape sequence among them) become blanks, bytes that
/// are not UTF-8 become U+FFFD.
std::string oneLine(std::string_view text);

}  // namespace halvo::TerminalText
