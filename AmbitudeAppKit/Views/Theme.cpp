#include "AmbitudeAppKit/Views/Theme.h"

#include <QApplication>
#include <QFontMetrics>
#include <QLayout>
#include <QPalette>
#include <QWidget>

#include "AmbitudeAppKit/Views/ThemeStyle.h"

namespace halvo {

/// Says that another look was installed.
class ThemeChanges : public QObject {
  Q_OBJECT

 signals:
  void changed();
};

namespace {

ThemeChanges& changes() {
  static ThemeChanges all;
  return all;
}

Theme light() {
  Theme t;
  t.window = "#f6f5f2", t.surface = "#ffffff", t.raised = "#efede8", t.line = "#dcd9d2";
  t.text = "#23211e", t.muted = "#67625a", t.accent = "#2f5d8a", t.onAccent = "#ffffff";
  t.good = "#397548", t.warning = "#8a5a00", t.bad = "#b0402c", t.quiet = "#6b5b95";
  t.apps = {"#6c8ebf", "#82b366", "#d79b00", "#b85450", "#9673a6", "#4e9a9a", "#a08060", "#5f7f5f", "#c27ba0", "#7f8c9d"};
  return t;
}

Theme dark() {
  Theme t;
  t.isDark = true;
  t.window = "#1d1e20", t.surface = "#26282b", t.raised = "#303338", t.line = "#3c4046";
  t.text = "#e8e6e1", t.muted = "#a7a49d", t.accent = "#8ab4e0", t.onAccent = "#12202e";
  t.good = "#7fc08f", t.warning = "#e0b060", t.bad = "#ee8b78", t.quiet = "#b3a3dc";
  t.apps = {"#7f9fcf", "#8fbf76", "#dba93a", "#cf7672", "#a98ab8", "#66b0b0", "#b59678", "#7f9f7f", "#d091b3", "#93a0b0"};
  return t;
}

Theme installed = light();

QPalette paletteOf(const Theme& t) {
  QPalette palette;
  palette.setColor(QPalette::Window, t.window);
  palette.setColor(QPalette::WindowText, t.text);
  palette.setColor(QPalette::Base, t.surface);
  palette.setColor(QPalette::AlternateBase, t.raised);
  palette.setColor(QPalette::Text, t.text);
  palette.setColor(QPalette::PlaceholderText, t.muted);
  palette.setColor(QPalette::Button, t.raised);
  palette.setColor(QPalette::ButtonText, t.text);
  palette.setColor(QPalette::Highlight, t.accent);
  palette.setColor(QPalette::HighlightedText, t.onAccent);
  palette.setColor(QPalette::Link, t.accent);
  palette.setColor(QPalette::ToolTipBase, t.raised);
  palette.setColor(QPalette::ToolTipText, t.text);
  palette.setColor(QPalette::Mid, t.line);
  for (const auto role : {QPalette::Text, QPalette::ButtonText, QPalette::WindowText}) palette.setColor(QPalette::Disabled, role, t.muted);
  return palette;
}

QString sheetOf(const Theme& t) {
  return QString(R"(
    QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; border: none; }
    QLineEdit, QPlainTextEdit, QTextEdit { background: %surface; border: 1px solid %line; border-radius: %r; padding: %p; }
    QLineEdit:focus, QPlainTextEdit:focus, QTextEdit:focus { border: 2px solid %accent; }
    QPushButton { background: %raised; border: 1px solid %line; border-radius: %r; padding: %p %pp; }
    QPushButton:hover { border-color: %accent; }
    QPushButton:focus { border: 2px solid %accent; }
    QPushButton:disabled { color: %muted; background: %window; }
    QPushButton[primary="true"] { background: %accent; color: %onAccent; border-color: %accent; }
    QPushButton[primary="true"]:focus { border: 2px solid %text; }
    QPushButton[flat="true"] { background: transparent; border: 1px solid transparent; color: %accent; padding: 2px 0; }
    QPushButton[flat="true"]:focus { border: 2px solid %accent; }
    QFrame[card="true"] { background: %surface; border: 1px solid %line; border-radius: %r; }
    QLabel[muted="true"] { color: %muted; }
    QLabel[tone="warning"] { color: %warning; }
    QScrollBar:vertical { background: transparent; width: %q; margin: 0; }
    QScrollBar:horizontal { background: transparent; height: %q; margin: 0; }
    QScrollBar::handle { background: %line; border-radius: 4px; min-height: %pp; min-width: %pp; }
    QScrollBar::handle:hover { background: %muted; }
    QScrollBar::add-line, QScrollBar::sub-line, QScrollBar::add-page, QScrollBar::sub-page
      { background: none; border: none; width: 0; height: 0; }
    QTableView, QListView, QTreeView { background: %surface; border: 1px solid %line; border-radius: %r; gridline-color: %line; }
    QHeaderView::section { background: %raised; border: none; border-bottom: 1px solid %line; padding: %p; }
    QAbstractScrollArea::corner { background: transparent; border: none; }
    QComboBox, QAbstractSpinBox { min-height: %h; padding: 0 %p; }
    QComboBox { min-height: %b; }
    QCheckBox::indicator { width: %i; height: %i; }
    QProgressBar { background: %raised; border: 1px solid %line; border-radius: %r; text-align: center; }
    QProgressBar::chunk { background: %accent; border-radius: %r; }
    QFrame#side { background: %window; border: none; border-right: 1px solid %line; }
    QListWidget#pages { background: transparent; border: none; outline: none; }
    QListWidget#pages::item { padding: %p %pp; margin: 1px %p; color: %text; border: 1px solid transparent; border-left-width: 3px; }
    QListWidget#pages::item:selected { background: %raised; color: %text; border-left-color: %accent; }
    QListWidget#pages::item:focus { border-color: %accent; }
    QToolTip { background: %raised; color: %text; border: 1px solid %line; }
  )")
      .replace("%surface", t.surface.name())
      .replace("%window", t.window.name())
      .replace("%raised", t.raised.name())
      .replace("%line", t.line.name())
      .replace("%text", t.text.name())
      .replace("%warning", t.warning.name())
      .replace("%muted", t.muted.name())
      .replace("%onAccent", t.onAccent.name())
      .replace("%accent", t.accent.name())
      .replace("%b", QString::number(Theme::scaled(28)) + "px")
      .replace("%h", QString::number(Theme::scaled(24)) + "px")
      .replace("%i", QString::number(Theme::scaled(14)) + "px")
      .replace("%q", QString::number(Theme::scaled(9)) + "px")
      .replace("%pp", QString::number(Theme::scaled(14)) + "px")
      .replace("%p", QString::number(Theme::scaled(6)) + "px")
      .replace("%r", QString::number(Theme::scaled(6)) + "px");
}

}  // namespace

const Theme& Theme::current() { return installed; }

void Theme::install(QApplication& application, Mode mode, int textPercent) {
  // Asked before ours is set: the desktop's own palette tells what its user likes.
  static const bool desktopIsDark = application.palette().color(QPalette::Window).lightness() < 128;
  static const QFont desktopFont = QApplication::font();
  auto font = desktopFont;
  if (font.pointSizeF() > 0)
    font.setPointSizeF(font.pointSizeF() * textPercent / 100);
  else
    font.setPixelSize(font.pixelSize() * textPercent / 100);
  installed = mode == Mode::dark || (mode == Mode::automatic && desktopIsDark) ? dark() : light();
  QApplication::setStyle(new ThemeStyle);
  QApplication::setPalette(paletteOf(installed));
  QApplication::setFont(font);
  application.setStyleSheet(sheetOf(installed));
  emit changes().changed();
}

void Theme::follow(QObject* owner, const std::function<void()>& apply) {
  apply();
  QObject::connect(&changes(), &ThemeChanges::changed, owner, apply);
}

void Theme::setFont(QWidget* of, double factor, bool isBold) {
  follow(of, [=] { of->setFont(font(factor, isBold)); });
}

void Theme::setMargins(QLayout* of, int pixels) {
  follow(of, [=] { of->setContentsMargins(scaled(pixels), scaled(pixels), scaled(pixels), scaled(pixels)); });
}

void Theme::setSpacing(QLayout* of, int pixels) {
  follow(of, [=] { of->setSpacing(scaled(pixels)); });
}

int Theme::scaled(int pixels) {
  constexpr double ordinaryHeight = 17;  // of a line of text at 96 dots an inch
  return static_cast<int>(pixels * std::max(1.0, QFontMetrics(QApplication::font()).height() / ordinaryHeight) + 0.5);
}

QFont Theme::font(double factor, bool isBold) {
  auto font = QApplication::font();
  if (font.pointSizeF() > 0)
    font.setPointSizeF(font.pointSizeF() * factor);
  else
    font.setPixelSize(static_cast<int>(font.pixelSize() * factor));
  if (isBold) font.setWeight(QFont::DemiBold);
  return font;
}

}  // namespace halvo

#include "Theme.moc"
