#include "CaptureShared/Privacy/IdentifierCandidates.h"

#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::IdentifierCandidates {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view head = "eyJ";
constexpr std::size_t leastPart = 10;  ///< letters of a part, behind "eyJ" where it has one

bool isTokenLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::size_t endOfRun(std::string_view text, std::size_t at) {
  while (at < text.size() && isTokenLetter(text[at])) ++at;
  return at;
}

/// Whether the character at `at` is a digit; `at` moves behind it.
bool takeDigit(std::string_view text, std::size_t& at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte >= 0x80) return u_isdigit(static_cast<UChar32>(Text::nextCodePoint(text, at)));
  ++at;
  return byte >= '0' && byte <= '9';
}

bool isASCIIDigit(char c) { return c >= '0' && c <= '9'; }

/// The next digit with none in front of it whose run has a length (counted up to `longEnough`) and a follower that `accepts`. The pattern
/// has the last word on digits of other scripts, so one of those in front is let through.
template <class Accepts>
std::size_t nextRun(std::string_view text, std::size_t from, Accepts&& accepts) {
  constexpr std::size_t longEnough = 4;
  for (std::size_t at = from; at < text.size();) {
    const auto begin = at;
    if (!takeDigit(text, at) || (begin > 0 && isASCIIDigit(text[begin - 1]))) continue;
    std::size_t count = 1, end = at;
    for (auto behind = at; count < longEnough && behind < text.size() && takeDigit(text, behind); ++count) end = behind;
    if (accepts(count, end)) return begin;
  }
  return npos;
}

}  // namespace

std::size_t nextDigitGroup(std::string_view text, std::size_t from) {
  return nextRun(text, from, [](std::size_t count, std::size_t) { return count >= 4; });
}

std::size_t nextAreaNumber(std::string_view text, std::size_t from) {
  return nextRun(text, from, [&](std::size_t count, std::size_t end) { return count == 3 && end < text.size() && text[end] == '-'; });
}

std::size_t nextWebToken(std::string_view text, std::size_t from) {
  static const Regex start(R"re((?:(?<!\w)|(?<=\\[nrt]))eyJ)re");
  for (auto dot = text.find(".eyJ", from); dot != npos; dot = text.find(".eyJ", dot + 1)) {
    const auto secondBegin = dot + 1 + head.size();
    const auto secondEnd = endOfRun(text, secondBegin);
    if (secondEnd - secondBegin < leastPart || secondEnd == text.size() || text[secondEnd] != '.') continue;
    if (endOfRun(text, secondEnd + 1) - (secondEnd + 1) < leastPart) continue;
    auto firstBegin = dot;
    while (firstBegin > from && isTokenLetter(text[firstBegin - 1])) --firstBegin;
    if (dot - firstBegin < head.size() + leastPart) continue;
    // Any start that leaves enough letters before the dot makes a match, and the first such is the one the pattern takes.
    if (const auto found = start.find(text.substr(0, dot - leastPart), firstBegin)) return found->whole().begin;
  }
  return npos;
}

}  // namespace halvo::IdentifierCandidates
