#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Text as people see it. Everything is UTF-8; a "character" is a user-perceived one (grapheme cluster).
namespace halvo::Text {

/// User-perceived characters.
std::size_t count(std::string_view text);
/// The first `characters` user-perceived characters; the whole text when it has no more.
std::string_view prefix(std::string_view text, std::size_t characters);
/// `text` when it has at most `characters` characters, else that prefix with "…" behind it.
std::string capped(std::string_view text, std::size_t characters);

/// Without leading and trailing Unicode white space, newlines included.
std::string_view trim(std::string_view text);
/// Without leading and trailing blanks (U+0020) and tabs.
std::string_view trimBlanksAndTabs(std::string_view text);
bool isBlank(std::string_view text);

/// Simple Unicode lower-casing, code point by code point.
std::string lower(std::string_view text);
std::string upper(std::string_view text);
/// Equal but for case (simple Unicode folding).
bool equalsIgnoringCase(std::string_view a, std::string_view b);
bool containsIgnoringCase(std::string_view text, std::string_view part);

bool isValidUTF8(std::string_view bytes);
/// The bytes with every malformed sequence replaced by U+FFFD: what probes and servers send enters through here.
std::string scrubbed(std::string_view bytes);

/// Newlines, carriage returns and the Unicode line and paragraph separators become single blanks, one for each.
std::string newlinesToBlanks(std::string_view text);

std::vector<std::string_view> split(std::string_view text, char separator);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string replaceAll(std::string text, std::string_view from, std::string_view to);

/// Appends one code point as UTF-8. A surrogate or a value past U+10FFFF becomes U+FFFD.
void appendCodePoint(std::string& out, char32_t codePoint);
/// Reads the code point at `at` and moves `at` behind it; malformed bytes read as U+FFFD, one byte at least.
char32_t nextCodePoint(std::string_view text, std::size_t& at);

/// A base-10 integer with an optional sign and nothing else, after trimming; absent otherwise or outside 64 bits.
std::optional<std::int64_t> parseInteger(std::string_view text);

}  // namespace halvo::Text
