#include "AmbitudeAppKit/Views/RecordingsView.h"

#include <exception>

#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/RecordingSwitchView.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Recording/Retention/RetentionPresets.h"

namespace halvo {

using Widgets::qt;

namespace {

constexpr qlonglong never = -1;

struct State {
  RetentionSettings settings;
  RecordingsPage page;
};

}  // namespace

RecordingsView::RecordingsView(Operations operations, QWidget* parent) : Page(parent), operations_(std::move(operations)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Recordings")));
  column->addWidget(new RecordingSwitchView(operations_.nowMs));
  QVBoxLayout* card = nullptr;
  column->addWidget(Widgets::card(card));
  card->addWidget(Widgets::subheading(tr("How long they are kept")));
  days_ = new QComboBox;
  days_->setObjectName("keep for");
  days_->setAccessibleName(tr("Delete recordings after"));
  days_->addItem(tr("Keep them all"), never);
  for (const auto& preset : RetentionPresets::all) offer(preset.days);
  onRestart_ = new QCheckBox(tr("After a restart, delete what came before it"));
  onRestart_->setObjectName("on restart");
  card->addWidget(days_, 0, Qt::AlignLeft);
  card->addWidget(onRestart_);
  card->addWidget(protection_ = Widgets::note());

  QVBoxLayout* now = nullptr;
  column->addWidget(Widgets::card(now));
  now->addWidget(Widgets::subheading(tr("What would be deleted now")));
  summary_ = Widgets::text();
  told_ = Widgets::text();
  told_->setVisible(false);
  table_ = Widgets::table({tr("Hour"), tr("Size"), tr("Verdict"), tr("Reason")}, tr("Recordings, each with what becomes of it"));
  delete_ = Widgets::button(tr("Delete these now…"), [this] { apply(); });
  delete_->setObjectName("delete recordings");
  delete_->setEnabled(false);
  now->addWidget(summary_);
  now->addWidget(table_);
  now->addWidget(told_);
  now->addWidget(delete_, 0, Qt::AlignLeft);
  column->addStretch();
  connect(days_, &QComboBox::activated, this, &RecordingsView::save);
  connect(onRestart_, &QCheckBox::clicked, this, &RecordingsView::save);
}

void RecordingsView::shown() {
  inBackground(
      queue_, this, [operations = operations_](const std::stop_token&) { return State{operations.settings(), operations.preview()}; },
      [this](const State& state) {
        if (pendingSaves_ == 0) showSettings(state.settings);
        show(state.page);
      });
}

void RecordingsView::showSettings(const RetentionSettings& settings) {
  const auto days = VideoRetention::days(settings.policy);
  const auto wanted = days ? static_cast<qlonglong>(*days) : never;
  if (days_->findData(wanted) < 0) offer(wanted);
  days_->setCurrentIndex(days_->findData(wanted));
  onRestart_->setChecked(settings.deleteOnRestart);
}

void RecordingsView::offer(qlonglong days) { days_->addItem(tr("Delete after %1").arg(qt(RetentionPresets::label(days))), days); }

void RecordingsView::show(const RecordingsPage& page) {
  protection_->setText(qt(page.protection));
  QStringList words{qt(!page.damage.empty() ? page.damage : page.refusal.empty() ? page.summary : page.refusal)};
  if (!page.warning.empty()) words << qt(page.warning);
  summary_->setText(words.join('\n'));
  Widgets::setWarning(summary_, !page.damage.empty() || !page.warning.empty() || (!page.refusal.empty() && !page.isSwitchedOff));
  std::vector<QStringList> rows;
  for (const auto& row : page.rows)
    rows.push_back({qt(row.display + " " + row.filename), qt(ModelProvisioning::humanBytes(row.bytes)), row.isToGo ? tr("to delete") : tr("kept"),
                    qt(row.reason)});
  Widgets::fill(table_, rows);
  delete_->setEnabled(page.toGo > 0);
}

void RecordingsView::save() {
  const auto days = days_->currentData().toLongLong();
  const bool onRestart = onRestart_->isChecked();
  ++pendingSaves_;
  inBackground(
      queue_, this,
      [operations = operations_, days, onRestart](const std::stop_token&) -> std::string {
        try {
          operations.change([&](RetentionSettings& settings) {
            settings.policy = VideoRetention::Disabled{};
            if (days != never) settings.policy = VideoRetention::DeleteOlderThanDays{days};
            settings.deleteOnRestart = onRestart;
          });
          return {};
        } catch (const std::exception& error) {
          return halvo::tr("not changed: {}", error.what());
        }
      },
      [this](const std::string& failure) {
        --pendingSaves_;
        tell(qt(failure));
        shown();
      });
}

void RecordingsView::apply() {
  const auto what = tr("%1\nThis can't be undone.").arg(summary_->text());
  QMessageBox ask(QMessageBox::Warning, tr("Delete recordings?"), what, QMessageBox::Cancel, this);
  auto* sure = ask.addButton(tr("Delete"), QMessageBox::DestructiveRole);
  ask.exec();
  if (ask.clickedButton() != sure) return;
  inBackground(
      queue_, this, [operations = operations_](const std::stop_token&) { return operations.apply(); },
      [this](const std::vector<std::string>& lines) {
        QStringList words;
        for (const auto& line : lines) words << qt(line);
        tell(words.join('\n'));
        shown();
      });
}

void RecordingsView::tell(const QString& words) {
  told_->setText(words);
  told_->setVisible(!words.isEmpty());
}

}  // namespace halvo
