#include "CaptureShared/Privacy/ScreenText.h"

#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ScreenText {
namespace {

/// The longest known marker has about 40 bytes; a longer run of such letters is no marker of any tokenizer.
constexpr std::size_t longestMarker = 96;

bool standsForABlank(char32_t codePoint) {
  const auto mask = U_GET_GC_MASK(static_cast<UChar32>(codePoint));
  return (mask & (U_GC_CC_MASK | U_GC_CF_MASK | U_GC_Z_MASK)) != 0;
}

bool isDoubleQuote(char32_t codePoint) {
  switch (codePoint) {
    case 0x0022: case 0x00AB: case 0x00BB: case 0x201C: case 0x201D: case 0x201E: case 0x201F: case 0x2033: case 0x2036: case 0x301D:
    case 0x301E: case 0x301F: case 0xFF02: return true;
  }
  return false;
}

/// Letters of a marker's name; bytes from 0x80 on cover the full-width bars and low lines that some models use.
bool mayStandInMarker(unsigned char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' || byte == '|' ||
         byte == '/' || byte == '-' || byte == '.' || byte == ':' || byte >= 0x80;
}

/// Whether "<" at `at` opens a marker: a run of marker letters, closed by ">".
bool opensMarker(std::string_view text, std::size_t at) {
  std::size_t end = at + 1;
  while (end < text.size() && end - at <= longestMarker && mayStandInMarker(static_cast<unsigned char>(text[end]))) ++end;
  return end > at + 1 && end < text.size() && text[end] == '>';
}

}  // namespace

std::string breakTurnMarkers(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  std::size_t copied = 0;
  for (auto at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    if (!opensMarker(text, at)) continue;
    out.append(text.substr(copied, at + 1 - copied)).push_back(' ');
    copied = at + 1;
  }
  out.append(text.substr(copied));
  return out;
}

std::string sanitize(std::string_view text, std::size_t cap) {
  std::string line;
  line.reserve(text.size());
  bool gap = false;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t codePoint = Text::nextCodePoint(text, at);
    if (standsForABlank(codePoint)) {
      gap = true;
      continue;
    }
    // A gap before the first letter or behind the last is an end to trim.
    if (gap && !line.empty()) line.push_back(' ');
    gap = false;
    Text::appendCodePoint(line, isDoubleQuote(codePoint) ? U'\u02BA' : codePoint);
  }
  return Text::capped(breakTurnMarkers(line), cap);
}

std::string quoted(std::string_view text, std::size_t cap) { return '"' + sanitize(text, cap) + '"'; }

}  // namespace halvo::ScreenText
