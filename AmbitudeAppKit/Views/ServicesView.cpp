#include "AmbitudeAppKit/Views/ServicesView.h"

#include <QComboBox>
#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Stores/Health.h"
#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeAppKit/Views/WrapRow.h"
#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

using Widgets::qt;

namespace {

/// What an action came to.
struct Outcome {
  QStringList lines;
  bool isDone = true;
};

void add(Outcome& outcome, const AgentActions::Told& told) {
  auto line = told.agent ? ServicesView::tr("%1: %2").arg(qt(displayName(*told.agent)), qt(told.words)) : qt(told.words);
  if (!told.detail.empty()) line += "\n    " + qt(told.detail).simplified();
  // What holds for all of them is said once.
  if (!outcome.lines.contains(line)) outcome.lines << line;
  outcome.isDone &= told.isDone;
}

/// What stands in the way of a registration comes before what the files say.
ServicesPage pageOf(const AgentActions& actions) {
  const auto states = actions.states();
  auto lines = actions.lines();
  for (auto& [agent, complaint] : Health::complaints(states, processEnvironment(), Clock::system().nowMs())) {
    auto& line = lines[agent];
    line += (line.empty() ? "" : "; ") + complaint;
  }
  return ServicesPage::of(states, lines);
}

}  // namespace

ServicesView::Operations ServicesView::Operations::of(const std::shared_ptr<AgentActions>& actions) {
  return {.look = [actions] { return pageOf(*actions); },
          .install = [actions](AgentActions::Agents agents, const Tell& tell) { actions->install(agents, tell); },
          .restart = [actions](AgentActions::Agents agents, const Tell& tell) { actions->restart(agents, tell); },
          .stop = [actions](AgentActions::Agents agents, const Tell& tell) { actions->stop(agents, tell); },
          .remove = [actions](AgentActions::Agents agents, const Tell& tell) { actions->remove(agents, tell); },
          .log = [](BackgroundAgent agent) { return AgentLog::read(agent); }};
}

ServicesView::ServicesView(Operations operations, QWidget* parent) : Page(parent), operations_(std::move(operations)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Services")));
  column->addWidget(Widgets::note(tr("The agents work in the background, whether this window is open or not.")));
  banners_ = new QVBoxLayout;
  column->addLayout(banners_);
  QVBoxLayout* card = nullptr;
  column->addWidget(Widgets::card(card));
  QStringList headers;
  for (const auto& header : ServicesPage::headers()) headers << qt(header);
  table_ = Widgets::table(headers, tr("The agents, each with what it is doing"));
  table_->setSelectionMode(QAbstractItemView::SingleSelection);
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
  connect(table_, &QTableWidget::itemSelectionChanged, this, [this] {
    if (const auto rows = table_->selectionModel()->selectedRows(); !rows.isEmpty()) which_->setCurrentIndex(rows.first().row() + 1);
  });
  card->addWidget(table_);
  addButtons(card);
  addLog(column);
  column->addStretch();
}

void ServicesView::addButtons(QVBoxLayout* card) {
  which_ = new QComboBox;
  which_->setObjectName("which agents");
  which_->setAccessibleName(tr("The agents that the buttons mean"));
  which_->addItem(tr("All agents"));
  for (const auto& agent : backgroundAgents) which_->addItem(qt(displayName(agent.agent)));
  connect(which_, &QComboBox::currentIndexChanged, this, &ServicesView::choose);
  auto* row = new WrapRow;
  row->addWidget(which_);
  actions_ = {Widgets::button(tr("Install"), [this] { run(operations_.install); }, tr("Install and start")),
              Widgets::button(tr("Restart"), [this] { run(operations_.restart); }),
              Widgets::button(tr("Stop"), [this] { run(operations_.stop); }, tr("Stop until the next login")),
              Widgets::button(tr("Remove…"), [this] { confirmRemoval(); })};
  for (auto* button : actions_) row->addWidget(button);
  row->addWidget(Widgets::link(tr("Look again"), [this] { shown(); }));
  card->addLayout(row);
  told_ = Widgets::text();
  told_->setObjectName("told");
  told_->setVisible(false);
  card->addWidget(told_);
}

void ServicesView::addLog(QVBoxLayout* column) {
  QVBoxLayout* card = nullptr;
  column->addWidget(Widgets::card(card));
  card->addWidget(Widgets::subheading(tr("Log")));
  logFile_ = Widgets::note(tr("Choose an agent to see the end of its log."));
  log_ = new QPlainTextEdit;
  log_->setObjectName("agent log");
  log_->setAccessibleName(tr("The last lines of the chosen agent's log"));
  log_->setReadOnly(true);
  log_->setTabChangesFocus(true);
  Theme::follow(log_, [this] { log_->setMinimumHeight(Theme::scaled(180)); });
  log_->setVisible(false);
  card->addWidget(logFile_);
  card->addWidget(log_);
}

void ServicesView::shown() {
  inBackground(
      looks_, this, [look = operations_.look](const std::stop_token&) { return look(); }, [this](const ServicesPage& page) { show(page); });
  lookAtLog();
}

void ServicesView::show(const ServicesPage& page) {
  if (page == page_) return;
  page_ = page;
  Widgets::clear(banners_);
  for (const auto& words : page.banners) {
    auto* banner = Widgets::text(qt(words));
    Widgets::setWarning(banner, true);
    banners_->addWidget(banner);
  }
  std::vector<QStringList> rows;
  for (const auto& row : page.rows)
    rows.push_back({qt(row.name), qt(row.state), qt(row.pid), qt(row.lastExit), qt(row.since), qt(row.health).simplified()});
  const QSignalBlocker hold(table_);
  Widgets::fill(table_, rows);
  if (which_->currentIndex() > 0) table_->selectRow(which_->currentIndex() - 1);
}

void ServicesView::choose() {
  const QSignalBlocker hold(table_);
  if (which_->currentIndex() > 0)
    table_->selectRow(which_->currentIndex() - 1);
  else
    table_->clearSelection();
  lookAtLog();
}

void ServicesView::lookAtLog() {
  const int index = which_->currentIndex();
  log_->setVisible(index > 0);
  if (index == 0) return logFile_->setText(tr("Choose an agent to see the end of its log."));
  inBackground(
      looks_, this, [log = operations_.log, agent = chosen().front()](const std::stop_token&) { return log(agent); },
      [this, index](const AgentLog& log) {
        if (which_->currentIndex() != index) return;
        const auto file = qt(log.file.string());
        logFile_->setText(log.trouble.empty() ? file : tr("%1: %2").arg(file, qt(log.trouble)));
        QStringList lines;
        for (const auto& line : log.lines) lines << qt(line);
        log_->setPlainText(lines.join('\n'));
        log_->verticalScrollBar()->setValue(log_->verticalScrollBar()->maximum());
      });
}

void ServicesView::confirmRemoval() {
  const auto what = which_->currentIndex() == 0
                        ? tr("All agents are stopped and taken from the service manager.\nWhat was recorded stays.")
                        : tr("%1 is stopped and taken from the service manager.\nWhat was recorded stays.").arg(which_->currentText());
  QMessageBox ask(QMessageBox::Warning, tr("Remove from the background?"), what, QMessageBox::Cancel, this);
  auto* sure = ask.addButton(tr("Remove"), QMessageBox::DestructiveRole);
  ask.exec();
  if (ask.clickedButton() == sure) run(operations_.remove);
}

void ServicesView::run(const Operations::Act& act) {
  setBusy(true);
  inBackground(
      work_, this,
      [act, agents = chosen()](const std::stop_token& closing) {
        Outcome outcome;
        for (std::size_t i = 0; i < agents.size() && !closing.stop_requested(); ++i)
          act(std::span(&agents[i], 1), [&](const AgentActions::Told& told) { add(outcome, told); });
        return outcome;
      },
      [this](const Outcome& outcome) {
        setBusy(false);
        told_->setText(outcome.lines.join('\n'));
        Widgets::setWarning(told_, !outcome.isDone);
        shown();
      });
}

void ServicesView::setBusy(bool isBusy) {
  for (auto* button : actions_) button->setEnabled(!isBusy);
  which_->setEnabled(!isBusy);
  if (isBusy) {
    told_->setText(tr("At work…"));
    Widgets::setWarning(told_, false);
  }
  told_->setVisible(true);
}

std::vector<BackgroundAgent> ServicesView::chosen() const {
  std::vector<BackgroundAgent> agents;
  for (std::size_t i = 0; i < backgroundAgents.size(); ++i)
    if (which_->currentIndex() == 0 || which_->currentIndex() == static_cast<int>(i) + 1) agents.push_back(backgroundAgents[i].agent);
  return agents;
}

}  // namespace halvo
