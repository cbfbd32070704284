#pragma once

#include <string>
#include <string_view>

namespace halvo {

/// The foot of a terminal that is drawn over itself: text that is not settled yet. Pure; the caller writes what it answers.
class TerminalRegion {
 public:
  struct Size {
    int columns = 80, rows = 24;
  };

  /// The bytes that put `text` (UTF-8, with no control character but newlines) in place of what was drawn. A text that would not fit on the
  /// screen loses its beginning. Empty when nothing changes.
  std::string draw(std::string_view text, Size size);
  /// The bytes that take away what was drawn.
  std::string erase();

  /// The rows a text takes at a width, at least 1. Wide characters take two columns, combining marks none.
  static int rowsOf(std::string_view text, int columns);

 private:
  std::string drawn_;
  int rows_ = 0;
};

}  // namespace halvo
