#include "AmbitudeAppKit/Views/DiagnosticsView.h"

#include <exception>
#include <utility>

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

DiagnosticsView::DiagnosticsView(std::function<std::string()> report, QWidget* parent) : Page(parent), report_(std::move(report)) {
  auto* column = new QVBoxLayout(this);
  Theme::setMargins(column, 24);
  column->addWidget(Widgets::heading(tr("Diagnostics")));
  column->addWidget(Widgets::note(tr("For someone who helps you. Only log lines of a known shape are in it: counts, times and the names of "
                                     "Halvo's own programs. Every other line is left out and counted. Nothing is sent; what you see is "
                                     "what is saved.")));
  text_ = new QPlainTextEdit;
  text_->setObjectName("report");
  text_->setReadOnly(true);
  text_->setTabChangesFocus(true);
  text_->setAccessibleName(tr("The report"));
  Theme::follow(text_, [this] {
    auto font = QApplication::font();
    font.setFamily("monospace");
    text_->setFont(font);
  });
  column->addWidget(text_, 1);
  told_ = Widgets::text();
  told_->setVisible(false);
  column->addWidget(told_);
  column->addWidget(save_ = Widgets::primary(tr("Save as…"), [this] { save(); }), 0, Qt::AlignLeft);
  save_->setEnabled(false);  // until there is something to see
}

void DiagnosticsView::shown() {
  if (std::exchange(isLooking_, true)) return;
  inBackground(
      queue_, this, [report = report_](const std::stop_token&) { return report(); },
      [this](const std::string& report) {
        isLooking_ = false;
        text_->setPlainText(Widgets::qt(report));
        save_->setEnabled(true);
      });
}

void DiagnosticsView::save() {
  const auto name = QFileDialog::getSaveFileName(this, tr("Save the report"), "halvo-diagnostics.txt");
  if (name.isEmpty()) return;
  inBackground(
      queue_, this,
      [file = Widgets::utf8(name), text = Widgets::utf8(text_->toPlainText())](const std::stop_token&) -> std::string {
        try {
          writeFileAtomically(file, text);
          return {};
        } catch (const std::exception& error) {
          return error.what();
        }
      },
      [this, name](const std::string& failure) {
        told_->setText(failure.empty() ? tr("Saved to %1").arg(name) : tr("Not saved: %1").arg(Widgets::qt(failure)));
        told_->setVisible(true);
        Widgets::setWarning(told_, !failure.empty());
      });
}

}  // namespace halvo
