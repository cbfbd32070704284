// Every word of the windows comes through the translators: under one that spells them in wide letters no narrow one is left.

#include <algorithm>
#include <set>

#include <QAbstractItemView>
#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QRegularExpression>
#include <QTableWidget>
#include <QTranslator>

#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/DayStripView.h"
#include "AmbitudeAppKit/Views/Language.h"
#include "AmbitudeAppKit/Views/SetupView.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/InventedDay.h"
#include "tools/Screenshots/InventedMachine.h"

namespace halvo {
namespace {

/// A language that every text is known in. Places of arguments stay as they are, and what is put into them shows.
struct WideLetters : QTranslator {
  QString translate(const char*, const char* source, const char*, int) const override {
    auto words = QString::fromUtf8(source);
    bool isPlace = false;
    for (auto& letter : words) {
      isPlace = letter == '{' || (isPlace && letter != '}');
      if (!isPlace && letter < QChar(0x80) && letter.isLetter()) letter = QChar(letter.unicode() + 0xFEE0);
    }
    return words;
  }
  bool isEmpty() const override { return false; }
};

/// What can be read or heard of a window, but for what is in its fields.
QStringList wordsOf(const QWidget& window) {
  QStringList words;
  const auto addItems = [&](const QAbstractItemModel* of) {
    for (int c = 0; of && c < of->columnCount(); ++c)
      for (int r = -1; r < of->rowCount(); ++r)
        for (const auto role : {Qt::DisplayRole, Qt::AccessibleDescriptionRole})
          words << (r < 0 ? of->headerData(c, Qt::Horizontal, role) : of->index(r, c).data(role)).toString();
  };
  auto widgets = window.findChildren<const QWidget*>();
  for (const auto* widget : widgets << &window) {
    words << widget->windowTitle() << widget->accessibleName() << widget->accessibleDescription() << widget->toolTip();
    words << widget->property(widget->inherits("QLineEdit") ? "placeholderText" : "text").toString();
    for (const auto* action : widget->actions()) words << action->text();
    if (const auto* choice = qobject_cast<const QComboBox*>(widget)) addItems(choice->model());
    if (const auto* items = qobject_cast<const QAbstractItemView*>(widget)) addItems(items->model());
  }
  return words;
}

class LanguageTest : public test::WindowScene {
 protected:
  LanguageTest() {
    QCoreApplication::installTranslator(&language_);
    Language::install();
    test::InventedDay::write(root, calendar);
    InventedMachine::write(root, calendar);
    add(AppChatEvents::coachMessage({.text = "Lunch?", .asOfMs = nowMs, .servedBy = "qwen", .fallbackCause = FallbackCause::unreachable}));
    for (const auto& file : std::filesystem::recursive_directory_iterator(root)) addOwn(file.path());
    for (const auto& model : ModelProvisioning::knownModels()) own_ << QString::fromStdString(model.name);
    own_ << root.c_str() << std::getenv("HOME");
    std::ranges::sort(own_, std::greater(), &QString::size);
  }
  ~LanguageTest() override {
    desktop.reset();
    setTranslator(nullptr);
    QCoreApplication::removeTranslator(&language_);
  }
  /// A recording's name, or what is told in a log in more than one word: single ones are mostly the programs'.
  void addOwn(const std::filesystem::path& path) {
    if (path.extension() == ".mkv") own_ << path.filename().c_str();
    if (!path.extension().string().starts_with(".json")) return;
    static const QRegularExpression sentence("[\\[:,]\\s*\"([^\"]* [^\"]*)\"");
    for (const auto& found : sentence.globalMatch(QString::fromStdString(readFile(path)))) own_ << found.captured(1);
  }
  void openDay() {
    auto needs = desktopNeeds();
    const auto model = needs.model;
    InventedMachine::putInto(needs, calendar);
    needs.model = model;
    desktop = std::make_unique<DesktopApplication>(DayFeed::Config{root, calendar, needs.nowMs}, Pages::all(needs));
    desktop->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&desktop->window()));
    const auto* health = desktop->window().findChild<QLabel*>("health");
    ASSERT_TRUE(eventually([&] { return !health->text().isEmpty() && !desktop->feed().conversation().entries.empty(); }));
  }
  void expectTranslated(const QStringList& words, const QString& where) {
    for (const auto& text : words) {
      auto left = text;
      for (const auto& own : own_) left.remove(own);
      const auto isNarrow = [](QChar letter) { return letter.isLetter() && (letter < QChar(0xFF21) || letter > QChar(0xFF5A)); };
      if (std::ranges::any_of(left, isNarrow) && told_.insert(text).second)
        ADD_FAILURE() << where.toStdString() << ": \"" << text.toStdString() << '"';
    }
  }
  void ask(QPushButton* button, const QString& where) {
    pressAnd(button, [&](QDialog& asked) {
      expectTranslated(qobject_cast<QFileDialog*>(&asked) ? QStringList(asked.windowTitle()) : wordsOf(asked), where);
    });
  }
  /// Whatever asks something is asked too.
  void lookAt(QWidget& window, const QString& where) {
    for (auto* button : window.findChildren<QPushButton*>())
      if (button->text().endsWith(QChar(0x2026)) && button->isVisible() && button->isEnabled() && !button->property("flat").toBool())
        ask(button, where);
    expectTranslated(wordsOf(window), where);
  }
  void lookAtPages() {
    auto& window = desktop->window();
    auto* day = window.findChild<DayStripView*>();
    for (int step = 0; step < 60; ++step) {
      QTest::keyClick(day, Qt::Key_Left);
      expectTranslated({day->accessibleDescription()}, "the day");
    }
    // What stands on each once it has read its files.
    const char* const signs[] = {"", "back to it", "", "Tax papers", "1840", "T10.mkv", "gemma4", "", "Supervisor.log", ""};
    for (int i = 0; i < window.pageCount(); ++i) {
      window.showPage(i);
      auto& page = *window.page(i);
      if (auto* which = page.findChild<QComboBox*>("which agents")) which->setCurrentIndex(1);
      EXPECT_TRUE(eventually([&] { return wordsOf(page).join(' ').contains(signs[i]); })) << signs[i];
      lookAt(window, page.accessibleName());
    }
  }

  const Calendar calendar = Calendar::local();
  const std::int64_t nowMs = test::InventedDay::nowMs(calendar);

 private:
  WideLetters language_;
  /// What the day's person, programs and files are quoted with, the longest first.
  QStringList own_{"Thunderbird", "LibreOffice Writer", "firefox", "Signal", "9:30am", "4:30pm", "5pm", "Lunch?", "qwen", "GB", "MB", "Feb",
                   "Mar", "display-0", "/home/you/Library/Logs/AmbitCapture/Supervisor.log",
                   "/Library/Application Support/AmbitCapture/config.json", "<p>", "</p>", "<br>"};
  std::set<QString> told_;
};

TEST_F(LanguageTest, noPageAndNoDialogHasAWordThatIsNotTranslated) {
  openDay();
  lookAtPages();
  PersonActions::apply(PersonActions::readTyped("write the essay until 5pm", nowMs, calendar), nowMs);
  PersonActions::quiet(UserQuietDuration::oneHour, nowMs, calendar);
  PersonActions::pauseRecording(std::nullopt, nowMs);
  openDay();
  lookAtPages();
  desktop->popup().openByPerson();
  lookAt(desktop->popup(), "popup");
  using State = DataRootSetup::State;
  for (const auto state : {State::unconfigured, State::away, State::damaged}) {
    SetupView setup({.state = [=] { return state; }, .carryOut = [](auto&) {}}, "/a/folder", state);
    setup.show();
    lookAt(setup, "set-up");
  }
}

TEST_F(LanguageTest, noStepOfAReviewHasAWordThatIsNotTranslated) {
  test::InventedDay::leaveReview(root, calendar);
  openDay();
  desktop->window().showPage(2);
  auto& page = *desktop->window().page(2);
  const auto button = [&](const char* name) { return page.findChild<QPushButton*>(name); };
  ASSERT_TRUE(eventually([&] { return button("another")->isVisible(); }));
  press(button("another"));
  ask(button("draw"), "another review");
  const auto isScored = [&] {
    for (const auto key : {Qt::Key_R, Qt::Key_Escape, Qt::Key_1, Qt::Key_Return}) {
      QTest::keyClick(&page, key);
      expectTranslated(wordsOf(page), "review");
    }
    return page.findChild<QTableWidget*>()->isVisible();
  };
  EXPECT_TRUE(eventually(isScored));
  const auto before = wordsOf(page);
  press(button("draw"));
  EXPECT_TRUE(eventually([&] { return wordsOf(page) != before; }));
  expectTranslated(wordsOf(page), "nothing drawn");
}

}  // namespace
}  // namespace halvo
