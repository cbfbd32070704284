#include "CaptureShared/Privacy/NormalizedIdentifierText.h"

#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

bool isFormat(char32_t codePoint) {
  return codePoint >= 0x80 && u_charType(static_cast<UChar32>(codePoint)) == U_FORMAT_CHAR;
}

bool isSpace(char32_t codePoint) {
  if (codePoint < 0x80) return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r');
  return u_isUWhiteSpace(static_cast<UChar32>(codePoint));
}

/// Whether anything has to be left out. Format characters begin at U+00AD, so bytes below 0xC2 never belong to one.
bool isPlain(std::string_view text) {
  std::size_t blanks = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) return false;
    blanks = isSpace(byte) ? blanks + 1 : 0;
    if (blanks > NormalizedIdentifierText::keptBlanks) return false;
  }
  return true;
}

}  // namespace

NormalizedIdentifierText::NormalizedIdentifierText(std::string_view original) : original_(original) {
  if (isPlain(original)) return;
  rebuilt_.reserve(original.size());
  offsets_.reserve(original.size());
  struct Piece {
    std::size_t begin, size;
  };
  const auto keep = [&](Piece piece) {
    for (std::size_t i = 0; i < piece.size; ++i) offsets_.push_back(piece.begin + i);
    rebuilt_.append(original.substr(piece.begin, piece.size));
  };
  std::vector<Piece> blanks;
  const auto endRun = [&] {
    constexpr auto half = keptBlanks / 2;
    for (std::size_t i = 0; i < blanks.size(); ++i)
      if (blanks.size() <= keptBlanks || i < half || i >= blanks.size() - half) keep(blanks[i]);
    blanks.clear();
  };
  for (std::size_t at = 0; at < original.size();) {
    const auto begin = at;
    const auto codePoint = Text::nextCodePoint(original, at);
    if (isFormat(codePoint)) {
      containsFormatCharacters_ = true;
    } else if (isSpace(codePoint)) {
      blanks.push_back({begin, at - begin});
    } else {
      endRun();
      keep({begin, at - begin});
    }
  }
  endRun();
  if (rebuilt_.size() == original.size()) {
    rebuilt_.clear();
    offsets_.clear();
  } else if (rebuilt_.empty()) {
    original_ = {};
  }
}

std::pair<std::size_t, std::size_t> NormalizedIdentifierText::originalRange(std::size_t begin, std::size_t end) const {
  if (offsets_.empty() || begin >= end) return {begin, end};
  return {offsets_[begin], offsets_[end - 1] + 1};
}

}  // namespace halvo
