#pragma once

#include <array>
#include <functional>

#include <QColor>
#include <QFont>

#include "AmbitudeAppKit/Stores/Appearance.h"

class QApplication;
class QLayout;
class QObject;
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
  /// Sets palette, style sheet and the size of text; `automatic` follows the desktop's own palette. Windows that are open take it
  /// up as they are.
  static void install(QApplication& application, Mode mode, int textPercent = 100);

  /// Does what depends on the colours or on the size of text, now and after every change of them, while `owner` lives.
  static void follow(QObject* owner, const std::function<void()>& apply);
  /// The application's font, `factor` times as large, in whatever size that has.
  static void setFont(QWidget* of, double factor, bool isBold = false);
  /// Lengths as `scaled` has them: on all four sides, and between the parts.
  static void setMargins(QLayout* of, int pixels);
  static void setSpacing(QLayout* of, int pixels);

  /// A length given for text of ordinary size, grown with the user's text.
  static int scaled(int pixels);
  static QFont font(double factor, bool isBold = false);
};

}  // namespace halvo
