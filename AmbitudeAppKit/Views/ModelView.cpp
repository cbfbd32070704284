#include "AmbitudeAppKit/Views/ModelView.h"

#include <memory>

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

using Widgets::qt;

ModelView::ModelView(Operations operations, QWidget* parent) : Page(parent), operations_(std::move(operations)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Model")));
  column->addWidget(Widgets::note(tr("The model that looks at your screen runs on this machine. It is downloaded once and checked "
                                     "before it is used.")));
  told_ = Widgets::text();
  told_->setObjectName("told");
  told_->setVisible(false);
  column->addWidget(told_);

  QVBoxLayout* progress = nullptr;
  progressCard_ = Widgets::card(progress);
  progressCard_->setVisible(false);
  progressWords_ = Widgets::text();
  progressWords_->setObjectName("progress words");
  bar_ = new QProgressBar;
  bar_->setObjectName("progress");
  bar_->setAccessibleName(tr("Progress"));
  bar_->setRange(0, 1000);
  bar_->setTextVisible(false);
  cancel_ = Widgets::button(tr("Cancel"), [this] { ending_.request_stop(); }, tr("Cancel; what came so far is kept"));
  progress->addWidget(progressWords_);
  progress->addWidget(bar_);
  progress->addWidget(cancel_, 0, Qt::AlignLeft);
  column->addWidget(progressCard_);

  models_ = new QVBoxLayout;
  Theme::setSpacing(models_, 14);
  column->addLayout(models_);
  column->addStretch();
}

ModelView::~ModelView() { ending_.request_stop(); }

void ModelView::shown() {
  inBackground(
      looks_, this, [list = operations_.list](const std::stop_token&) { return list(); }, [this](const ModelPage& page) { show(page); });
}

void ModelView::show(const ModelPage& page) {
  // The cards stay while nothing is new, and with them whatever has the focus.
  if (page == shownPage_) return;
  shownPage_ = page;
  Widgets::clear(models_);
  if (!page.unknownConfigured.empty()) {
    auto* unknown = Widgets::text(qt(page.unknownConfigured));
    Widgets::setWarning(unknown, true);
    models_->addWidget(unknown);
  }
  for (const auto& row : page.rows) models_->addWidget(cardOf(row));
  setBusy(isBusy_);
}

QWidget* ModelView::cardOf(const ModelPage::Row& row) {
  QVBoxLayout* column = nullptr;
  auto* card = Widgets::card(column);
  const auto name = qt(row.name);
  const auto title = row.isConfigured    ? row.isWhole ? tr("%1 (the one that judges)") : tr("%1 (chosen to judge; not here yet)")
                     : row.isRecommended ? tr("%1 (recommended here)")
                                         : QString("%1");
  column->addWidget(Widgets::subheading(title.arg(name)));
  const auto facts = row.isWhole ? tr("%1; %2; %3") : tr("%1 to download; %2; %3");
  column->addWidget(Widgets::text(facts.arg(qt(row.size), qt(row.fit), qt(row.state))));
  column->addWidget(Widgets::note(qt(row.role)));
  if (!row.warning.empty()) column->addWidget(Widgets::note(qt(row.warning)));
  auto* actions = new QHBoxLayout;
  const auto add = [&](const QString& label, const QString& does, std::function<void()> act) {
    auto* button = Widgets::button(label, std::move(act), tr("%1: %2").arg(label, name));
    button->setObjectName(does + " " + name);
    button->setProperty("model", true);
    actions->addWidget(button);
  };
  if (!row.isWhole) add(row.isBegun ? tr("Go on") : tr("Install"), "install", [this, row] { start(operations_.install, row.name); });
  if (row.isWhole) add(tr("Check"), "verify", [this, row] { start(operations_.verify, row.name); });
  if (!row.isConfigured)
    add(tr("Use this one"), "choose", [this, row] { change([choose = operations_.choose, row] { return choose(row.name); }); });
  if (row.isBegun) add(tr("Remove…"), "remove", [this, row] { remove(row.name, qt(row.state)); });
  actions->addStretch();
  column->addLayout(actions);
  return card;
}

void ModelView::start(const Operations::Work& work, const std::string& model) {
  if (isBusy_) return;
  setBusy(true);
  told_->setVisible(false);
  progressWords_->setText(qt(model));
  bar_->setValue(0);
  cancel_->setFocus();
  ending_ = {};
  const auto text = std::make_shared<InstallProgressText>(InstallProgressText::Style::words);
  const auto report = [this, owner = QPointer<QObject>(this), text](const LocalModelInstaller::Progress& progress) {
    const auto shown = ModelPage::progress(*text, progress, Clock::system().nowMs());
    QMetaObject::invokeMethod(
        qApp,
        [this, owner, shown] {
          if (!owner) return;
          bar_->setValue(shown.permille);
          progressWords_->setText(qt(shown.words));
        },
        Qt::QueuedConnection);
  };
  inBackground(
      work_, this,
      [work, model, report, ending = ending_](const std::stop_token& closing) mutable {
        const std::stop_callback follow(closing, [&ending] { ending.request_stop(); });
        return work(model, report, ending.get_token());
      },
      [this](const ModelShelf::Outcome& outcome) {
        setBusy(false);
        tell(outcome);
        shown();
      });
}

void ModelView::remove(const std::string& model, const QString& state) {
  QMessageBox ask(QMessageBox::Warning, tr("Remove this model?"), tr("%1 (%2) would have to be downloaded again.").arg(qt(model), state),
                  QMessageBox::Cancel, this);
  auto* sure = ask.addButton(tr("Remove"), QMessageBox::DestructiveRole);
  ask.exec();
  if (ask.clickedButton() == sure) change([remove = operations_.remove, model] { return remove(model); });
}

void ModelView::change(const std::function<ModelShelf::Outcome()>& work) {
  inBackground(
      work_, this, [work](const std::stop_token&) { return work(); },
      [this](const ModelShelf::Outcome& outcome) {
        tell(outcome);
        shown();
      });
}

void ModelView::tell(const ModelShelf::Outcome& outcome) {
  QString words;
  match(
      outcome,
      [&](const ModelShelf::Done& done) {
        for (const auto& line : done.lines) words += (words.isEmpty() ? "" : "\n") + qt(line);
      },
      [&](const ModelShelf::Stopped&) { words = tr("Stopped; the next install goes on from here."); },
      [&](const ModelShelf::Failed& failed) { words = qt(failed.why); });
  told_->setText(words);
  told_->setVisible(true);
  Widgets::setWarning(told_, std::holds_alternative<ModelShelf::Failed>(outcome));
}

void ModelView::setBusy(bool isBusy) {
  isBusy_ = isBusy;
  progressCard_->setVisible(isBusy);
  for (auto* button : findChildren<QPushButton*>())
    if (button->property("model").toBool()) button->setEnabled(!isBusy);
}

}  // namespace halvo
