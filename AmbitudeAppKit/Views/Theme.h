#pragma once

#include <array>

#include <QColor>
#include <QFont>

#include "AmbitudeAppKit/Stores/Appearance.h"

class QApplication;
class QWidget;

namespace halvo {

/// The colours and measures of every view. Contrast of text on its ground is 4.5 to 1 or more in both.
struct Theme {
  using Mode = Appearance::Mode;

  bool isDark = false;
  QColor window, surface, raised, line;   ///< grounds from the back to the front, and what parts them
  QColor text, muted, accent, onAccent;
  QColor good, warning, bad, quiet;       ///< of verdicts and states
  std::array<QColor, 10> apps;

  static const Theme& current();
  /// Sets palette, style sheet and the size of text; `automatic` follows the desktop's own palette. Windows that are open take up the colours,
  /// and the size when they are made anew.
  static void install(QApplication& application, Mode mode, int textPercent = 100);

  /// A length given for text of ordinary size, grown with the user's text.
  static int scaled(int pixels);
  /// The application's font, `steps` sizes larger.
  static QFont font(double factor, bool isBold = false);
};

}  // namespace halvo
