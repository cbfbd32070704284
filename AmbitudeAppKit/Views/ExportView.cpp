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

ExportView::ExportView(std::filesystem::path root, Calendar calendar, QWidget* parent) : Page(parent), root_(std::move(root)), calendar_(calendar) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Export")));
  QVBoxLayout* card = nullptr;
  column->addWidget(Widgets::card(card));
  card->addWidget(Widgets::note(tr("Copies of your own rows, as they are, in a new folder that only you can read. Recordings are not among them.")));
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
  from_ = dateField(QDate::currentDate().addDays(-6), tr("First day"));
  to_ = dateField(QDate::currentDate(), tr("Last day"));
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
  return {.fromMs = calendar_.instant(first.year(), first.month(), first.day(), 0),
          .toMs = calendar_.instant(behind.year(), behind.month(), behind.day(), 0) - 1,
          .withEvents = events_->isChecked(),
          .withVerdicts = verdicts_->isChecked(),
          .withSamples = samples_->isChecked()};
}

void ExportView::chooseFolder() {
  const auto parent = QFileDialog::getExistingDirectory(this, tr("Where to"));
  if (!parent.isEmpty()) exportInto(utf8(parent));
}

void ExportView::exportInto(const std::filesystem::path& parent) {
  const auto folder = parent / utf8("halvo-" + from_->date().toString(Qt::ISODate) + "-to-" + to_->date().toString(Qt::ISODate));
  start_->setEnabled(false);
  inBackground(
      queue_, this,
      [choice = choice(), root = root_, folder](const std::stop_token& stop) {
        QString told = tr("Written to %1").arg(qt(folder.string()));
        try {
          for (const auto& [file, rows] : HistoryExport::write(choice, root, folder, stop)) told += tr("\n%1: %2 row(s)").arg(qt(file)).arg(rows);
        } catch (const std::exception& error) {
          told = tr("Nothing was written: %1").arg(qt(error.what()));
        }
        return told;
      },
      [this](const QString& told) {
        told_->setText(told);
        told_->setVisible(true);
        start_->setEnabled(true);
      });
}

}  // namespace halvo
