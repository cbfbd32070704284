#include "AmbitudeAppKit/Live/TerminalRegion.h"

#include <algorithm>

#include <fmt/format.h>
#include <unicode/uchar.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

int columnsOf(char32_t c) {
  const auto code = static_cast<UChar32>(c);
  const auto type = u_charType(code);
  if (type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR) return 0;
  const auto width = u_getIntPropertyValue(code, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

}  // namespace

int TerminalRegion::rowsOf(std::string_view text, int columns) {
  int rows = 1, column = 0;
  for (std::size_t at = 0; at < text.size();) {
    const auto c = Text::nextCodePoint(text, at);
    const int width = c == U'\n' ? 0 : columnsOf(c);
    if (c == U'\n' || column + width > columns) ++rows, column = 0;
    column += width;
  }
  return rows;
}

std::string TerminalRegion::draw(std::string_view text, Size size) {
  std::string fitting(text);
  // A drawing that scrolled off the screen could not be taken away again.
  const int most = std::max(1, size.rows - 1);
  while (rowsOf(fitting, size.columns) > most) {
    const auto rest = std::string_view(fitting).substr(Text::prefix(fitting, static_cast<std::size_t>(std::max(1, size.columns))).size());
    fitting = "…" + std::string(rest);
  }
  if (fitting == drawn_) return {};
  auto bytes = erase();
  bytes += fitting;
  rows_ = fitting.empty() ? 0 : rowsOf(fitting, size.columns);
  drawn_ = std::move(fitting);
  return bytes;
}

std::string TerminalRegion::erase() {
  if (rows_ == 0) return {};
  auto bytes = rows_ > 1 ? fmt::format("\r\x1b[{}A\x1b[J", rows_ - 1) : std::string("\r\x1b[J");
  rows_ = 0;
  drawn_.clear();
  return bytes;
}

}  // namespace halvo
