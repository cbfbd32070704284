#include "CaptureShared/Foundation/Text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace halvo::Text {

namespace {

/// ASCII without carriage returns: one byte is one character ("\r\n" is one character of two bytes).
bool isPlainASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != '\r'; });
}

/// Walks the character boundaries behind the start, at most `limit` of them: the number walked and the byte reached.
std::pair<std::size_t, std::size_t> walkCharacters(std::string_view text, std::size_t limit) {
  UErrorCode status = U_ZERO_ERROR;
  thread_local const std::unique_ptr<icu::BreakIterator> iterator(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  UText source = UTEXT_INITIALIZER;
  utext_openUTF8(&source, text.data(), static_cast<std::int64_t>(text.size()), &status);
  iterator->setText(&source, status);
  std::size_t walked = 0, reached = 0;
  while (walked < limit) {
    const auto next = iterator->next();
    if (next == icu::BreakIterator::DONE) break;
    reached = static_cast<std::size_t>(next);
    ++walked;
  }
  utext_close(&source);
  return {walked, reached};
}

template <class F>
std::string mapCodePoints(std::string_view text, F&& mapping) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) appendCodePoint(out, mapping(nextCodePoint(text, at)));
  return out;
}

std::string folded(std::string_view text) {
  return mapCodePoints(text, [](char32_t c) { return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT)); });
}

}  // namespace

std::size_t count(std::string_view text) { return isPlainASCII(text) ? text.size() : walkCharacters(text, text.size()).first; }

std::string_view prefix(std::string_view text, std::size_t characters) {
  if (text.size() <= characters) return text;
  // A character is at least one byte, so a plain prefix of that many bytes and one more settles it without a walk.
  if (isPlainASCII(text.substr(0, characters + 1))) return text.substr(0, characters);
  return text.substr(0, walkCharacters(text, characters).second);
}

std::string capped(std::string_view text, std::size_t characters) {
  const auto kept = prefix(text, characters);
  return kept.size() == text.size() ? std::string(text) : std::string(kept) + "…";
}

std::string_view trim(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t next = begin;
    if (!u_isUWhiteSpace(static_cast<UChar32>(nextCodePoint(text, next)))) break;
    begin = next;
  }
  std::size_t end = text.size();
  while (end > begin) {
    std::size_t start = end - 1;
    while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    std::size_t next = start;
    if (!u_isUWhiteSpace(static_cast<UChar32>(nextCodePoint(text, next))) || next != end) break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

std::string_view trimBlanksAndTabs(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool isBlank(std::string_view text) { return trim(text).empty(); }

std::string lower(std::string_view text) {
  return mapCodePoints(text, [](char32_t c) { return static_cast<char32_t>(u_tolower(static_cast<UChar32>(c))); });
}
std::string upper(std::string_view text) {
  return mapCodePoints(text, [](char32_t c) { return static_cast<char32_t>(u_toupper(static_cast<UChar32>(c))); });
}
bool equalsIgnoringCase(std::string_view a, std::string_view b) { return a == b || folded(a) == folded(b); }
bool containsIgnoringCase(std::string_view text, std::string_view part) { return folded(text).find(folded(part)) != std::string::npos; }

bool isValidUTF8(std::string_view bytes) {
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto size = static_cast<std::int64_t>(bytes.size());
  for (std::int64_t at = 0; at < size;) {
    // Most rows are ASCII for most of their length: eight bytes at a time.
    if (std::uint64_t eight = 0; size - at >= 8) {
      std::memcpy(&eight, data + at, 8);
      if ((eight & 0x8080808080808080) == 0) {
        at += 8;
        continue;
      }
    }
    UChar32 c;
    U8_NEXT(data, at, size, c);
    if (c < 0) return false;
  }
  return true;
}

std::string scrubbed(std::string_view bytes) {
  return mapCodePoints(bytes, [](char32_t c) { return c; });
}

std::string newlinesToBlanks(std::string_view text) {
  return mapCodePoints(text, [](char32_t c) -> char32_t { return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029 ? U' ' : c; });
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (std::size_t begin = 0;;) {
    const auto end = text.find(separator, begin);
    pieces.push_back(text.substr(begin, end - begin));
    if (end == std::string_view::npos) return pieces;
    begin = end + 1;
  }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) out += separator;
    out += parts[i];
  }
  return out;
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) text.replace(at, from.size(), to);
  return text;
}

void appendCodePoint(std::string& out, char32_t codePoint) {
  if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) codePoint = 0xFFFD;
  char buffer[4];
  std::int32_t length = 0;
  U8_APPEND_UNSAFE(buffer, length, static_cast<UChar32>(codePoint));
  out.append(buffer, static_cast<std::size_t>(length));
}

char32_t nextCodePoint(std::string_view text, std::size_t& at) {
  const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
  auto index = static_cast<std::int64_t>(at);
  UChar32 c;
  U8_NEXT(data, index, static_cast<std::int64_t>(text.size()), c);
  at = static_cast<std::size_t>(index);
  return c < 0 ? 0xFFFD : static_cast<char32_t>(c);
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
  text = trim(text);
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (text.empty() || text.front() == '-') return std::nullopt;
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace halvo::Text
