#include "AmbitudeAppKit/Views/Widgets.h"

#include <algorithm>

#include <QApplication>
#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QLayoutItem>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QStyle>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Theme.h"

namespace halvo::Widgets {

QLabel* text(const QString& words) {
  auto* label = new QLabel(words);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

QLabel* heading(const QString& words) {
  auto* label = text(words);
  Theme::setFont(label, 1.6, true);
  return label;
}

QLabel* subheading(const QString& words) {
  auto* label = text(words);
  Theme::setFont(label, 1.15, true);
  return label;
}

QLabel* note(const QString& words) {
  auto* label = text(words);
  label->setProperty("muted", true);
  return label;
}

void setWarning(QLabel* label, bool isWarning) {
  label->setProperty("tone", isWarning ? "warning" : "");
  label->style()->unpolish(label);
  label->style()->polish(label);
}

QPushButton* button(const QString& label, std::function<void()> pressed, const QString& description) {
  auto* made = new QPushButton(label);
  made->setAutoDefault(false);
  made->setAccessibleName(description.isEmpty() ? QString(label).remove('&') : description);
  QObject::connect(made, &QPushButton::clicked, made, [act = std::move(pressed)] { act(); });
  return made;
}

QPushButton* primary(const QString& label, std::function<void()> pressed, const QString& description) {
  auto* made = button(label, std::move(pressed), description);
  made->setProperty("primary", true);
  return made;
}

QPushButton* link(const QString& label, std::function<void()> pressed, const QString& description) {
  auto* made = button(label, std::move(pressed), description);
  made->setProperty("flat", true);
  made->setCursor(Qt::PointingHandCursor);
  return made;
}

QFrame* card(QVBoxLayout*& column) {
  auto* frame = new QFrame;
  frame->setProperty("card", true);
  column = new QVBoxLayout(frame);
  Theme::setMargins(column, 14);
  Theme::setSpacing(column, 8);
  return frame;
}

namespace {

/// As high as its rows, or as some of them with the rest to be scrolled to; never a part of one.
void fitRows(QTableWidget* table) {
  constexpr int atOnce = 6;
  int height = table->horizontalHeader()->sizeHint().height() + 2;  // and its frame
  for (int i = 0; i < std::min(table->rowCount(), atOnce); ++i) {
    if (table->verticalHeader()->sectionResizeMode(i) == QHeaderView::ResizeToContents) table->resizeRowToContents(i);
    height += table->rowHeight(i);
  }
  table->setFixedHeight(height);
}

}  // namespace

QTableWidget* table(const QStringList& headers, const QString& description) {
  auto* made = new QTableWidget(0, static_cast<int>(headers.size()));
  made->setHorizontalHeaderLabels(headers);
  made->setAccessibleName(description);
  made->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
  made->horizontalHeader()->setStretchLastSection(true);
  made->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  made->verticalHeader()->hide();
  made->setShowGrid(false);
  made->setEditTriggers(QAbstractItemView::NoEditTriggers);
  made->setSelectionBehavior(QAbstractItemView::SelectRows);
  made->setTabKeyNavigation(false);
  made->setVisible(false);  // until there are rows
  made->horizontalHeader()->setHighlightSections(false);
  Theme::follow(made, [made] { QTimer::singleShot(0, made, [made] { fitRows(made); }); });  // when the rows have their new height
  return made;
}

void fill(QTableWidget* into, const std::vector<QStringList>& rows) {
  into->setRowCount(static_cast<int>(rows.size()));
  for (int i = 0; i < into->rowCount(); ++i)
    for (int c = 0; c < into->columnCount(); ++c) into->setItem(i, c, new QTableWidgetItem(rows[static_cast<std::size_t>(i)].value(c)));
  fitRows(into);
  into->setVisible(!rows.empty());
}

QVBoxLayout* scrollingColumn(QWidget* page) {
  auto* outer = new QVBoxLayout(page);
  outer->setContentsMargins(0, 0, 0, 0);
  auto* area = new QScrollArea;
  area->setWidgetResizable(true);
  area->setFrameShape(QFrame::NoFrame);
  area->setFocusPolicy(Qt::NoFocus);
  auto* content = new QWidget;
  auto* column = new QVBoxLayout(content);
  Theme::setMargins(column, 24);
  Theme::setSpacing(column, 14);
  area->setWidget(content);
  outer->addWidget(area);
  return column;
}

void setLines(QPlainTextEdit* field, int lines) {
  Theme::follow(field, [=] {
    // Below the last line there is no margin: a further line would show in it. The frame is that of one that has the focus.
    const auto around = field->document()->documentMargin() + 2 * (Theme::scaled(6) + 2);
    field->setFixedHeight(static_cast<int>(lines * QFontMetricsF(QApplication::font()).lineSpacing() + around + 0.5));
  });
}

void giveBack(const QString& words, QLineEdit* line) { line->setText((words + ' ' + line->text()).trimmed()); }

void clear(QVBoxLayout* column) {
  while (auto* item = column->takeAt(0)) {
    if (auto* widget = item->widget()) widget->deleteLater(), widget->hide();
    if (auto* nested = dynamic_cast<QVBoxLayout*>(item->layout())) clear(nested);
    delete item;
  }
}

}  // namespace halvo::Widgets
