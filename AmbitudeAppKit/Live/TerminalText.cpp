#include "AmbitudeAppKit/Live/TerminalText.h"

#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::TerminalText {

std::string oneLine(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = Text::nextCodePoint(text, at);
    switch (u_charType(static_cast<UChar32>(c))) {
      case U_CONTROL_CHAR:
      case U_FORMAT_CHAR:
      case U_LINE_SEPARATOR:
      case U_PARAGRAPH_SEPARATOR: out += ' '; break;
      default: Text::appendCodePoint(out, c);
    }
  }
  return out;
}

}  // namespace halvo::TerminalText
