#include "CaptureShared/Foundation/PyRepr.h"

#include <fmt/format.h>
#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::PyRepr {

namespace {

bool isPrintable(char32_t c) {
  if (c == ' ') return true;
  switch (u_charType(static_cast<UChar32>(c))) {
    case U_SPACE_SEPARATOR:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
    case U_CONTROL_CHAR:
    case U_FORMAT_CHAR:
    case U_SURROGATE:
    case U_PRIVATE_USE_CHAR:
    case U_UNASSIGNED: return false;
    default: return true;
  }
}

}  // namespace

std::string string(std::string_view text) {
  const bool hasSingle = text.find('\'') != std::string_view::npos, hasDouble = text.find('"') != std::string_view::npos;
  const char quote = hasSingle && !hasDouble ? '"' : '\'';
  std::string out(1, quote);
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = Text::nextCodePoint(text, at);
    if (c == static_cast<char32_t>(quote) || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (isPrintable(c)) {
      Text::appendCodePoint(out, c);
    } else if (c < 0x100) {
      out += fmt::format("\\x{:02x}", static_cast<unsigned>(c));
    } else if (c < 0x10000) {
      out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += fmt::format("\\U{:08x}", static_cast<unsigned>(c));
    }
  }
  return out + quote;
}

std::string windowContentDict(std::string_view ocrText, std::string_view description) {
  return "{'ocr_text': " + string(ocrText) + ", 'description': " + string(description) + "}";
}

}  // namespace halvo::PyRepr
