#include "AmbitudeAppKit/Views/MainWindow.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

MainWindow::MainWindow(std::vector<PageEntry> pages, QWidget* parent) : QMainWindow(parent) {
  setWindowTitle(tr("Halvo"));
  resize(Theme::scaled(980), Theme::scaled(680));
  auto* whole = new QWidget;
  auto* row = new QHBoxLayout(whole);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  auto* sideFrame = new QFrame;
  sideFrame->setObjectName("side");
  auto* side = new QVBoxLayout(sideFrame);
  list_ = new QListWidget;
  list_->setObjectName("pages");
  list_->setAccessibleName(tr("Pages"));
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  side->addWidget(list_, 1);
  healthTitle_ = Widgets::text();
  healthTitle_->setObjectName("health");
  healthDetail_ = Widgets::note();
  Theme::setFont(healthDetail_, 0.85);
  for (auto* label : {healthTitle_, healthDetail_}) side->addWidget(label);
  Theme::follow(sideFrame, [this, side] {
    side->setContentsMargins(0, Theme::scaled(12), 0, Theme::scaled(8));
    const auto width = Theme::scaled(176);
    list_->setFixedWidth(width);
    for (auto* label : {healthTitle_, healthDetail_}) {
      label->setFixedWidth(width);
      label->setMargin(Theme::scaled(6));
      label->setIndent(Theme::scaled(20));  // under the names of the pages
    }
  });
  row->addWidget(sideFrame);
  stack_ = new QStackedWidget;
  row->addWidget(stack_, 1);
  setCentralWidget(whole);

  for (auto& entry : pages) {
    auto* item = new QListWidgetItem(entry.name, list_);
    item->setData(Qt::AccessibleDescriptionRole, entry.description);
    stack_->addWidget(new QWidget);
    pages_.push_back({std::move(entry)});
  }
  connect(list_, &QListWidget::currentRowChanged, this, &MainWindow::showPage);
  for (int i = 0; i < pageCount() && i < 10; ++i) {
    const auto key = static_cast<Qt::Key>(Qt::Key_0 + (i + 1) % 10);
    connect(new QShortcut(QKeySequence(Qt::CTRL | key), this), &QShortcut::activated, this, [this, i] { showPage(i); });
  }
  connect(new QShortcut(QKeySequence::Quit, this), &QShortcut::activated, qApp, &QApplication::quit);
  if (!pages_.empty()) showPage(0);
}

Page* MainWindow::page(int index) {
  auto& slot = pages_[static_cast<std::size_t>(index)];
  if (!slot.made) {
    slot.made = slot.entry.make();
    auto* empty = stack_->widget(index);
    stack_->removeWidget(empty);
    delete empty;
    stack_->insertWidget(index, slot.made);
    slot.made->setAccessibleName(slot.entry.name);
  }
  return slot.made;
}

void MainWindow::showPage(int index) {
  if (index < 0 || index >= pageCount()) return;
  if (list_->currentRow() != index) return list_->setCurrentRow(index);  // which comes back here
  auto* wanted = page(index);
  stack_->setCurrentIndex(index);
  wanted->shown();
}

int MainWindow::currentPage() const { return stack_->currentIndex(); }

void MainWindow::showHealth(const QString& title, const QString& detail, bool isWarning) {
  healthTitle_->setText(title);
  healthDetail_->setText(detail);
  Widgets::setWarning(healthTitle_, isWarning);
}

}  // namespace halvo
