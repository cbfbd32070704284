#include "AmbitudeAppKit/Views/MemoryView.h"

#include <exception>

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Stores/Corrections.h"
#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

using Widgets::qt, Widgets::utf8;

namespace {

/// A value, or why there is none.
struct Read {
  std::optional<MemoryPage> page;
  std::string failure;
};

void addItem(QVBoxLayout* to, const QString& words, const QString& below) {
  auto* lines = new QVBoxLayout;
  Theme::setSpacing(lines, 2);
  lines->addWidget(Widgets::text(words));
  auto* origin = Widgets::note(below);
  Theme::setFont(origin, 0.9);
  lines->addWidget(origin);
  to->addLayout(lines);
}

}  // namespace

MemoryView::MemoryView(std::filesystem::path root, QWidget* parent) : Page(parent), root_(std::move(root)) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Memory and notes")));
  failure_ = Widgets::text();
  failure_->setVisible(false);
  Widgets::setWarning(failure_, true);
  column->addWidget(failure_);
  column->addWidget(Widgets::card(memory_));
  column->addWidget(Widgets::card(corrections_));
  QVBoxLayout* notes = nullptr;
  column->addWidget(Widgets::card(notes));
  addNotes(notes);
  column->addStretch();
}

void MemoryView::addNotes(QVBoxLayout* column) {
  column->addWidget(Widgets::subheading(tr("Standing notes")));
  column->addWidget(Widgets::note(tr("Your own words, given along each time.")));
  const std::map<std::string, QString> captions{{"gate", tr("When to interrupt")},
                                                {"coach", tr("How Lark should talk")},
                                                {"classifier", tr("What things on your screen mean")}};
  for (const auto& note : standingNotes) {
    const auto& caption = captions.at(note.whom);
    auto* field = new QPlainTextEdit;
    field->setObjectName(QString("note ") + note.whom);
    field->setAccessibleName(caption);
    field->setTabChangesFocus(true);
    Widgets::setLines(field, 3);
    column->addWidget(Widgets::note(caption));
    column->addWidget(field);
    notes_[note.whom] = field;
  }
  column->addWidget(Widgets::primary(tr("Save notes"), [this] { saveNotes(); }), 0, Qt::AlignLeft);
}

void MemoryView::shown() {
  tell({});
  read();
}

void MemoryView::read() {
  inBackground(
      reads_, this,
      [root = root_](const std::stop_token&) {
        try {
          return Read{MemoryPage::read(root, Clock::system().nowMs(), Calendar::local()), {}};
        } catch (const std::exception& error) {
          return Read{std::nullopt, error.what()};
        }
      },
      [this](const Read& read) {
        read.page ? show(*read.page) : tell(read.failure);
      });
}

void MemoryView::show(const MemoryPage& page) {
  showMemory(page);
  showCorrections(page);
  // What is being written is not overwritten.
  for (const auto& note : standingNotes)
    if (auto* field = notes_[note.whom]; !field->document()->isModified()) {
      field->setPlainText(qt(page.preferences.*note.text));
      field->document()->setModified(false);
    }
}

void MemoryView::showMemory(const MemoryPage& page) {
  Widgets::clear(memory_);
  memory_->addWidget(Widgets::subheading(tr("What Lark remembers")));
  memory_->addWidget(Widgets::note(page.asOf.empty() ? tr("Nothing is remembered yet. What happened is distilled at night.") : qt(page.asOf)));
  for (const auto& line : {page.notice, page.unorganized, page.forgotten})
    if (!line.empty()) memory_->addWidget(Widgets::note(qt(line)));
  if (!page.preferences.standingMemoryEnabled) memory_->addWidget(Widgets::note(tr("Memory is switched off: Lark is not shown any of it.")));
  const auto section = [this](const QString& title, const auto& items, auto&& add) {
    if (items.empty()) return;
    auto* heading = Widgets::text(title);
    Theme::setFont(heading, 1, true);
    memory_->addWidget(heading);
    for (const auto& item : items) add(item);
  };
  section(tr("Threads"), page.threads, [this](const MemoryPage::Thread& thread) {
    addItem(memory_, qt(thread.name), thread.notes.empty() ? qt(thread.status) : tr("%1: %2").arg(qt(thread.status), qt(thread.notes)));
  });
  const auto addOrigin = [this](const MemoryPage::Item& item) { addItem(memory_, qt(item.text), qt(item.origin)); };
  section(tr("Facts"), page.facts, addOrigin);
  section(tr("Lessons"), page.lessons, addOrigin);
  memory_->addWidget(Widgets::button(tr("Forget everything…"), [this] { forget(); }), 0, Qt::AlignLeft);
}

void MemoryView::showCorrections(const MemoryPage& page) {
  Widgets::clear(corrections_);
  corrections_->addWidget(Widgets::subheading(tr("What you told Lark about how to behave")));
  if (page.corrections.empty()) corrections_->addWidget(Widgets::note(tr("Nothing yet. Tell Lark in the conversation, and it stands here.")));
  for (const auto& correction : page.corrections) {
    auto* row = new QWidget;
    auto* across = new QHBoxLayout(row);
    across->setContentsMargins(0, 0, 0, 0);
    auto* words = new QVBoxLayout;
    addItem(words, qt(correction.text), qt(correction.how));
    across->addLayout(words, 1);
    across->addWidget(Widgets::link(
        tr("Delete"),
        [this, atMs = correction.atMs] {
          change([root = root_, atMs]() -> Failure {
            return Corrections::erase(atMs, root) ? Failure() : halvo::tr("it was deleted already");
          });
        },
        tr("Delete: %1").arg(qt(correction.text))));
    corrections_->addWidget(row);
  }
}

void MemoryView::saveNotes() {
  // What was not touched here may have changed elsewhere.
  std::map<std::string, QString> typed;
  for (const auto& [whom, field] : notes_)
    if (field->document()->isModified()) typed[whom] = field->toPlainText();
  const auto save = [root = root_, typed]() -> Failure {
    auto preferences = CoachPreferencesStore::read(root);
    for (const auto& note : standingNotes)
      if (const auto found = typed.find(note.whom); found != typed.end())
        preferences.*note.text = Text::scrubbed(Text::trim(utf8(found->second)));
    CoachPreferencesStore::write(root, preferences);
    return {};
  };
  change(save, [this, typed] {
    for (const auto& [whom, words] : typed)
      if (auto* field = notes_.at(whom); field->toPlainText() == words) field->document()->setModified(false);
  });
}

void MemoryView::forget() {
  QMessageBox ask(QMessageBox::Warning, tr("Forget everything?"), qt(MemoryPage::meaningOfForgetting()), QMessageBox::Cancel, this);
  auto* sure = ask.addButton(tr("Forget"), QMessageBox::DestructiveRole);
  ask.exec();
  if (ask.clickedButton() != sure) return;
  change([root = root_]() -> Failure {
    MemoryWipeLog::request(Clock::system().nowMs(), MemoryWipeLog::defaultURL(root));
    return {};
  });
}

void MemoryView::change(std::function<Failure()> work, std::function<void()> done) {
  tell({});
  inBackground(
      changes_, this,
      [work = std::move(work)](const std::stop_token&) -> Failure {
        try {
          return work();
        } catch (const std::exception& error) {
          return error.what();
        }
      },
      [this, done = std::move(done)](const Failure& failure) {
        if (failure) tell(halvo::tr("not changed: {}", *failure));
        else if (done) done();
        read();
      });
}

void MemoryView::tell(const Failure& failure) {
  failure_->setText(failure ? qt(*failure) : QString());
  failure_->setVisible(failure.has_value());
}

}  // namespace halvo
