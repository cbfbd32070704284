#include "AmbitudeAppKit/Views/ExportView.h"

#include <exception>

#include <QCheckBox>
#include <QDateEdit>
#include <QFileDialog>
#include <QFormLayout>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

using Widgets::qt, Widgets::utf8;

namespace {

QDateEdit* dateField(const QDate& date, const QString& name) {
  auto* field = new QDateEdit(date);
  field->setCalendarPopup(true);
  field->setDisplayFormat("yyyy-MM-dd");
  field->setAccessibleName(name);
  return field;
}

}  // namespace

ExportView::ExportView(Config config, QWidget* parent) : Page(parent), config_(std::move(config)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Export")));
  QVBoxLayout* card = nullptr;
  column->addWidget(Widgets::card(card));
  card->addWidget(Widgets::note(tr("Copies of your own rows, as they are, in a new folder that only you can read. "
                                   "Recordings are not among them.")));
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
  const auto today = config_.calendar.fields(config_.nowMs());
  const QDate last(today.year, today.month, today.day);
  from_ = dateField(last.addDays(-6), tr("First day"));
  to_ = dateField(last, tr("Last day"));
  form->addRow(tr("From"), from_);
  form->addRow(tr("Through"), to_);
  card->addLayout(form);
  events_ = new QCheckBox(tr("Declarations, conversation, quiet"));
  verdicts_ = new QCheckBox(tr("Verdicts and the gate's decisions"));
  samples_ = new QCheckBox(tr("Which application when (a table)"));
  for (auto* box : {events_, verdicts_, samples_}) card->addWidget(box);
  events_->setChecked(true);
  verdicts_->setChecked(true);
  start_ = Widgets::primary(tr("Choose a folder…"), [this] { chooseFolder(); });
  card->addWidget(start_, 0, Qt::AlignLeft);
  told_ = Widgets::text();
  told_->setObjectName("told");
  told_->setVisible(false);
  card->addWidget(told_);
  column->addStretch();
}

HistoryExport::Choice ExportView::choice() const {
  const auto first = from_->date(), behind = to_->date().addDays(1);
  return {.fromMs = config_.calendar.instant(first.year(), first.month(), first.day(), 0),
          .toMs = config_.calendar.instant(behind.year(), behind.month(), behind.day(), 0) - 1,
          .withEvents = events_->isChecked(),
          .withVerdicts = verdicts_->isChecked(),
          .withSamples = samples_->isChecked()};
}

void ExportView::chooseFolder() {
  if (from_->date() > to_->date()) return tell(tr("Nothing was written: the last day is before the first."), true);
  if (const auto what = choice(); !what.withEvents && !what.withVerdicts && !what.withSamples)
    return tell(tr("Nothing was written: nothing is chosen."), true);
  const auto parent = QFileDialog::getExistingDirectory(this, tr("Where to"));
  if (!parent.isEmpty()) exportInto(utf8(parent));
}

void ExportView::exportInto(const std::filesystem::path& parent) {
  const auto folder = parent / utf8("halvo-" + from_->date().toString(Qt::ISODate) + "-to-" + to_->date().toString(Qt::ISODate));
  start_->setEnabled(false);
  inBackground(
      queue_, this,
      [choice = choice(), root = config_.root, folder](const std::stop_token& stop) {
        QString told = tr("Written to %1").arg(qt(folder.string()));
        bool isDone = true;
        try {
          for (const auto& [file, rows] : HistoryExport::write(choice, root, folder, stop))
            told += '\n' + tr("%1: %2 row(s)").arg(qt(file)).arg(rows);
        } catch (const std::exception& error) {
          told = tr("Nothing was written: %1").arg(qt(error.what()));
          isDone = false;
        }
        return std::pair(told, isDone);
      },
      [this](const std::pair<QString, bool>& outcome) {
        tell(outcome.first, !outcome.second);
        start_->setEnabled(true);
      });
}

void ExportView::tell(const QString& words, bool isWarning) {
  told_->setText(words);
  told_->setVisible(true);
  Widgets::setWarning(told_, isWarning);
}

}  // namespace halvo
