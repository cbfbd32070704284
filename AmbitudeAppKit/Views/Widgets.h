#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <QString>
#include <QStringList>

class QFrame;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTableWidget;
class QVBoxLayout;
class QWidget;

/// The small parts that every page is made of.
namespace halvo::Widgets {

/// The heading of a page.
QLabel* heading(const QString& text);
/// A heading within a page.
QLabel* subheading(const QString& text);
/// Text that wraps and can be selected; plain, whatever it holds.
QLabel* text(const QString& words = {});
/// The same in the muted colour.
QLabel* note(const QString& words = {});
/// Shows a label in the colour of a warning, or in its own again.
void setWarning(QLabel* label, bool isWarning);
/// A button that calls `pressed`. `description` is for a screen reader when the label alone does not say it.
QPushButton* button(const QString& label, std::function<void()> pressed, const QString& description = {});
/// The one that Enter means.
QPushButton* primary(const QString& label, std::function<void()> pressed, const QString& description = {});
/// A button that looks like a link.
QPushButton* link(const QString& label, std::function<void()> pressed, const QString& description = {});
/// A framed part of a page with a column in it.
QFrame* card(QVBoxLayout*& column);
/// A table to read: no editing, whole rows, the last column takes what is left.
QTableWidget* table(const QStringList& headers, const QString& description);
/// Puts rows into it; hidden while there are none.
void fill(QTableWidget* table, const std::vector<QStringList>& rows);
/// The column of a page: margins, and a scroll bar when the window is too small for it.
QVBoxLayout* scrollingColumn(QWidget* page);
/// Makes a field as high as this many lines of text.
void setLines(QPlainTextEdit* field, int lines);
/// Words that could not be kept go back into their line, in front of what was typed since.
void giveBack(const QString& words, QLineEdit* line);
/// Takes everything out of a layout and deletes it.
void clear(QVBoxLayout* column);

inline QString qt(std::string_view utf8) { return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())); }
inline std::string utf8(const QString& text) { return text.toStdString(); }

}  // namespace halvo::Widgets
