#include "AmbitudeAppKit/Views/DiagnosticsView.h"

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

DiagnosticsView::DiagnosticsView(std::function<std::string()> report, QWidget* parent) : Page(parent), report_(std::move(report)) {
  auto* column = new QVBoxLayout(this);
  const auto space = Theme::scaled(24);
  column->setContentsMargins(space, space, space, space);
  column->addWidget(Widgets::heading(tr("Diagnostics")));
  column->addWidget(Widgets::note(tr("For someone who helps you. Only log lines of a known shape are in it: counts, times and the names of Halvo's own "
                                     "programs. Every other line is left out and counted. Nothing is sent; what you see is what is saved.")));
  text_ = new QPlainTextEdit;
  text_->setObjectName("report");
  text_->setReadOnly(true);
  text_->setTabChangesFocus(true);
  text_->setAccessibleName(tr("The report"));
  text_->setFont(QFont("monospace", QApplication::font().pointSize()));
  column->addWidget(text_, 1);
  told_ = Widgets::text();
  told_->setVisible(false);
  column->addWidget(told_);
  column->addWidget(Widgets::primary(tr("Save as…"), [this] { save(); }), 0, Qt::AlignLeft);
}

void DiagnosticsView::shown() {
  inBackground(
      queue_, this, [report = report_](const std::stop_token&) { return report(); },
      [this](const std::string& report) { text_->setPlainText(Widgets::qt(report)); });
}

void DiagnosticsView::save() {
  const auto name = QFileDialog::getSaveFileName(this, tr("Save the report"), "halvo-diagnostics.txt");
  if (name.isEmpty()) return;
  QSaveFile file(name);
  const auto bytes = text_->toPlainText().toUtf8();
  const bool isSaved = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
  told_->setText(isSaved ? tr("Saved to %1").arg(name) : tr("Not saved: %1").arg(file.errorString()));
  told_->setVisible(true);
}

}  // namespace halvo
