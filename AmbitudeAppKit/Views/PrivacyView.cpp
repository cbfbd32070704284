#include "AmbitudeAppKit/Views/PrivacyView.h"

#include <exception>
#include <optional>
#include <string>

#include <QFrame>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Stores/OwnDenylist.h"
#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

using Widgets::qt, Widgets::utf8;

PrivacyView::PrivacyView(std::filesystem::path root, QWidget* parent) : Page(parent), root_(std::move(root)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Privacy")));
  told_ = Widgets::text();
  told_->setVisible(false);
  column->addWidget(told_);

  QVBoxLayout* leaves = nullptr;
  column->addWidget(Widgets::card(leaves));
  leaves->addWidget(Widgets::subheading(tr("What leaves this machine")));
  coach_ = Widgets::text();
  leaves->addWidget(coach_);
  leaves->addWidget(Widgets::note(tr("Pictures of your screen never leave, whatever is set. Text goes only to the coach's service, if you chose one, "
                                     "and only after card, account and identity numbers and credentials were taken out.")));
  calls_ = Widgets::table({tr("When"), tr("Who asked"), tr("Who answered"), tr("Tokens sent"), tr("Tokens back")},
                          tr("Calls to a model, newest first"));
  leaves->addWidget(calls_);

  QVBoxLayout* never = nullptr;
  column->addWidget(Widgets::card(never));
  never->addWidget(Widgets::subheading(tr("Never captured")));
  denylistNote_ = Widgets::note();
  never->addWidget(denylistNote_);
  denylist_ = new QPlainTextEdit;
  denylist_->setObjectName("denylist");
  denylist_->setAccessibleName(tr("Names of applications that are never captured, one on each line"));
  denylist_->setTabChangesFocus(true);
  Widgets::setLines(denylist_, 8);
  never->addWidget(denylist_);
  never->addWidget(Widgets::primary(tr("Save list"), [this] { saveDenylist(); }), 0, Qt::AlignLeft);
  never->addWidget(Widgets::note(tr("An empty list brings the built-in one back. The background programs take a change up when you log in again.")));
  column->addStretch();
}

void PrivacyView::shown() {
  struct Read {
    std::optional<PrivacyPage> page;
    std::string failure;
  };
  inBackground(
      reads_, this,
      [root = root_](const std::stop_token&) {
        try {
          return Read{PrivacyPage::read(root, processEnvironment(), Calendar::local()), {}};
        } catch (const std::exception& error) {
          return Read{std::nullopt, error.what()};
        }
      },
      [this](const Read& read) {
        if (read.page) return show(*read.page);
        told_->setText(qt(read.failure));
        told_->setVisible(true);
      });
}

void PrivacyView::show(const PrivacyPage& page) {
  coach_->setText(qt(page.coach));
  std::vector<QStringList> rows;
  for (const auto& call : page.calls)
    rows.push_back({qt(call.when), qt(call.who), qt(call.where), QString::number(call.promptTokens), QString::number(call.completionTokens)});
  Widgets::fill(calls_, rows);
  switch (page.denylistSource) {
    case PrivacyPage::DenylistSource::builtIn:
      denylistNote_->setText(tr("The built-in list: windows of these applications are never looked at or recorded."));
      break;
    case PrivacyPage::DenylistSource::theirs:
      denylistNote_->setText(tr("Your own list: windows of these applications are never looked at or recorded."));
      break;
    case PrivacyPage::DenylistSource::kept:
      denylistNote_->setText(tr("Your own list is kept and holds from your next login on. Until then the built-in list is in force."));
      break;
    case PrivacyPage::DenylistSource::outside:
      denylistNote_->setText(tr("The environment of this session holds another list, which is in force until you log in again."));
      break;
  }
  if (denylist_->document()->isModified()) return;
  QStringList names;
  for (const auto& name : page.denylist) names << qt(name);
  denylist_->setPlainText(names.join('\n'));
  denylist_->document()->setModified(false);
}

void PrivacyView::saveDenylist() {
  const auto typed = denylist_->toPlainText();
  const auto names = OwnDenylist::namesIn(utf8(typed));
  inBackground(
      changes_, this,
      [names](const std::stop_token&) -> std::string {
        try {
          OwnDenylist::write(names, processEnvironment());
          return {};
        } catch (const std::exception& error) {
          return halvo::tr("not changed: {}", error.what());
        }
      },
      [this, typed](const std::string& failure) {
        told_->setText(failure.empty() ? tr("Saved. It holds from your next login on.") : qt(failure));
        told_->setVisible(true);
        Widgets::setWarning(told_, !failure.empty());
        if (failure.empty() && denylist_->toPlainText() == typed) denylist_->document()->setModified(false);
        shown();
      });
}

}  // namespace halvo
