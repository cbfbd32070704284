#include "AmbitudeAppKit/Views/SetupView.h"

#include <exception>

#include <QFileDialog>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

using Widgets::qt, Widgets::utf8;

namespace {

QString whatItDoes(BackgroundAgent agent) {
  switch (agent) {
    case BackgroundAgent::captureSupervisor:
      return SetupView::tr("notes which application is in front and records the screen, encrypted");
    case BackgroundAgent::coachDriver: return SetupView::tr("decides whether Lark speaks up, and talks with you");
    case BackgroundAgent::consolidate: return SetupView::tr("distils the day into what Lark remembers, at night");
    case BackgroundAgent::classifier:
      return SetupView::tr("looks at the screen every few minutes and judges whether it fits what you declared");
    case BackgroundAgent::localModel: return SetupView::tr("runs the model that does the looking, once you installed it on the Model page");
  }
  return {};
}

}  // namespace

SetupView::SetupView(Operations operations, const QString& offeredRoot, DataRootSetup::State state, int lookMs, QWidget* parent)
    : Page(parent), operations_(std::move(operations)) {
  auto* column = Widgets::scrollingColumn(this);
  if (state == DataRootSetup::State::unconfigured)
    addFirstSteps(column, offeredRoot);
  else
    addAway(column, state);
  told_ = Widgets::text();
  told_->setObjectName("told");
  told_->setVisible(false);
  Widgets::setWarning(told_, true);
  column->addWidget(told_);
  column->addStretch();
  auto* poll = new QTimer(this);
  connect(poll, &QTimer::timeout, this, &SetupView::look);
  poll->start(lookMs);
}

void SetupView::addFirstSteps(QVBoxLayout* column, const QString& offeredRoot) {
  column->addWidget(Widgets::heading(tr("Welcome to Halvo")));
  column->addWidget(Widgets::text(tr("You say what you mean to be doing. Halvo looks at what happens, and Lark talks with you when the two "
                                     "part.")));

  QVBoxLayout* where = nullptr;
  column->addWidget(Widgets::card(where));
  where->addWidget(Widgets::subheading(tr("Where it is kept")));
  where->addWidget(Widgets::text(tr("Everything Halvo records goes into one folder that only you can read.")));
  auto* row = new QHBoxLayout;
  root_ = new QLineEdit(offeredRoot);
  root_->setObjectName("root");
  root_->setAccessibleName(tr("The folder for everything that is recorded"));
  row->addWidget(root_, 1);
  row->addWidget(Widgets::button(tr("Choose…"), [this] { chooseFolder(); }, tr("Choose the folder")));
  where->addLayout(row);
  connect(root_, &QLineEdit::returnPressed, this, &SetupView::start);

  QVBoxLayout* what = nullptr;
  column->addWidget(Widgets::card(what));
  what->addWidget(Widgets::subheading(tr("What is recorded")));
  what->addWidget(Widgets::text(tr("The application in front, window titles, the browser's address, idle time, the screen (encrypted), "
                                   "what you declare, and what you and Lark say. Windows of password managers and the like are never "
                                   "captured; you can add to that list on the Privacy page.")));

  QVBoxLayout* never = nullptr;
  column->addWidget(Widgets::card(never));
  never->addWidget(Widgets::subheading(tr("What never leaves this machine")));
  never->addWidget(Widgets::text(tr("The picture of your screen, whatever you choose. As set up here nothing else does either; with a "
                                    "remote coach, which you would have to choose, text does, with card numbers and credentials "
                                    "taken out.")));

  QVBoxLayout* starts = nullptr;
  column->addWidget(Widgets::card(starts));
  starts->addWidget(Widgets::subheading(tr("What starts with it")));
  starts->addWidget(Widgets::text(tr("Five programs, now and at each login, whether the window is open or not. The Services page stops and "
                                     "removes them.")));
  for (const auto& agent : backgroundAgents)
    starts->addWidget(Widgets::note(tr("%1: %2").arg(qt(displayName(agent.agent)), whatItDoes(agent.agent))));
  start_ = Widgets::primary(tr("Start"), [this] { start(); }, tr("Make the folder and start the programs"));
  start_->setObjectName("start");
  column->addWidget(start_, 0, Qt::AlignLeft);
}

void SetupView::addAway(QVBoxLayout* column, DataRootSetup::State state) {
  const bool isAway = state == DataRootSetup::State::away;
  column->addWidget(Widgets::heading(isAway ? tr("Your data is away") : tr("The settings can't be read")));
  column->addWidget(Widgets::text(qt(DataRootSetup::reason(state))));
  column->addWidget(
      Widgets::note(isAway ? tr("Nothing is recorded until it is back, and nothing is made in its place. Mount it and Halvo goes on.")
                           : tr("Nothing in the file is touched. Halvo goes on once it can be read.")));
  start_ = Widgets::primary(tr("Try again"), [this] { look(); });
  start_->setObjectName("try again");
  column->addWidget(start_, 0, Qt::AlignLeft);
}

void SetupView::chooseFolder() {
  const auto chosen = QFileDialog::getExistingDirectory(this, tr("A folder for what is recorded"), root_->text());
  if (!chosen.isEmpty()) root_->setText(chosen);
}

void SetupView::start() {
  if (!start_->isEnabled()) return;
  start_->setEnabled(false);
  inBackground(
      queue_, this,
      [carryOut = operations_.carryOut, root = utf8(root_->text())](const std::stop_token&) -> std::string {
        try {
          carryOut(root);
          return {};
        } catch (const std::exception& error) {
          return error.what();
        }
      },
      [this](const std::string& failure) {
        start_->setEnabled(true);
        tell(qt(failure));
        if (failure.empty()) look();
      });
}

void SetupView::look() {
  if (isLooking_ || isFinished_) return;
  isLooking_ = true;
  inBackground(
      queue_, this, [state = operations_.state](const std::stop_token&) { return state(); },
      [this](DataRootSetup::State state) {
        isLooking_ = false;
        if (isFinished_ || state != DataRootSetup::State::ready) return;
        isFinished_ = true;
        emit finished();
      });
}

void SetupView::tell(const QString& words) {
  told_->setText(words);
  told_->setVisible(!words.isEmpty());
}

}  // namespace halvo
