// Every page for whoever can't see it, has no mouse, or needs large letters.

#include <atomic>
#include <cmath>
#include <map>
#include <set>
#include <thread>

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QScrollArea>

#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/SetupView.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/InventedDay.h"

namespace halvo {
namespace {

/// Contrast of two colours, from 1 to 21, as WCAG 2 has it.
double contrast(const QColor& a, const QColor& b) {
  const auto luminance = [](const QColor& color) {
    const auto linear = [](double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
  };
  const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
  return (light + 0.05) / (dark + 0.05);
}

/// The greatest contrast of any pixel of a widget, but for its frame, with the ground.
double contrastIn(QWidget& widget, int frame, const QColor& ground) {
  widget.resize(120, 40);
  const auto image = widget.grab(widget.rect().adjusted(frame, frame, -frame, -frame)).toImage();
  double greatest = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) greatest = std::max(greatest, contrast(image.pixelColor(x, y), ground));
  return greatest;
}

std::string nameOf(const QWidget* widget) {
  auto name = widget->accessibleName();
  if (const auto* button = qobject_cast<const QAbstractButton*>(widget); button && name.isEmpty()) name = button->text();
  return name.toStdString();
}

std::string describe(const QWidget* widget) {
  std::string words = widget->metaObject()->className() + std::string(" \"") + widget->objectName().toStdString() + "\" " + nameOf(widget);
  if (const auto* label = qobject_cast<const QLabel*>(widget)) words += label->text().toStdString();
  return words;
}

class AccessibilityTest : public test::WindowScene {
 protected:
  /// Calls `check` on each page of the window, which is opened on the invented day.
  void onEachPage(const std::function<void(MainWindow&)>& check) {
    if (!desktop) {
      test::InventedDay::write(root, Calendar::local());
      open();
    }
    for (int i = 0; i < desktop->window().pageCount(); ++i) {
      auto& window = desktop->window();
      window.showPage(i);
      QTest::qWait(400);  // the page reads its files
      SCOPED_TRACE(window.page(i)->accessibleName().toStdString());
      check(window);
    }
  }
  static bool takesTab(const QWidget* widget) {
    return widget->isVisible() && widget->isEnabled() && (widget->focusPolicy() & Qt::TabFocus) && !widget->focusProxy() &&
           !widget->objectName().startsWith("qt_");
  }
  static void expectRoom(QWidget& window) {
    for (auto* widget : window.findChildren<QWidget*>()) {
      if (const auto* list = qobject_cast<QListWidget*>(widget)) {
        EXPECT_GE(list->viewport()->width(), list->sizeHintForColumn(0)) << describe(widget);
      }
      const auto* label = qobject_cast<QLabel*>(widget);
      const bool isControl = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QComboBox*>(widget) || qobject_cast<QLineEdit*>(widget);
      if (!widget->isVisible() || (!isControl && !(label && !label->text().isEmpty())) || widget->objectName().startsWith("qt_")) continue;
      if (label && label->wordWrap()) {
        EXPECT_GE(label->height(), label->heightForWidth(label->width())) << describe(widget);
      } else if (!qobject_cast<QLineEdit*>(widget)) {
        EXPECT_GE(widget->width(), widget->sizeHint().width()) << describe(widget);
      }
      EXPECT_GE(widget->width(), widget->minimumSizeHint().width()) << describe(widget);
      // What doesn't fit can be scrolled to, down and never sideways, and all else is on the window.
      const QWidget* ground = &window;
      for (auto* above = widget->parentWidget(); above; above = above->parentWidget())
        if (auto* area = qobject_cast<QScrollArea*>(above)) {
          EXPECT_LE(area->widget()->width(), area->viewport()->width()) << describe(widget);
          ground = area->widget();
          break;
        }
      EXPECT_TRUE(ground->rect().contains(QRect(widget->mapTo(ground, QPoint(0, 0)), widget->size()))) << describe(widget);
    }
  }
};

TEST_F(AccessibilityTest, everyControlHasANameAndTabReachesIt) {
  onEachPage([](MainWindow& window) {
    std::set<const QWidget*> wanted, reached;
    for (auto* widget : window.findChildren<QWidget*>())
      if (takesTab(widget)) {
        EXPECT_FALSE(nameOf(widget).empty()) << describe(widget);
        wanted.insert(widget);
      }
    window.findChild<QListWidget*>("pages")->setFocus();
    for (int i = 0; i < 150; ++i) {
      reached.insert(QApplication::focusWidget());
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    for (const auto* widget : wanted) EXPECT_TRUE(reached.contains(widget)) << describe(widget);
  });
}

TEST_F(AccessibilityTest, largeTextLosesNothing) {
  const auto check = [](MainWindow& window) {
    window.resize(1000, 700);
    QTest::qWait(100);
    expectRoom(window);
  };
  onEachPage(check);
  desktop->setAppearance({.textPercent = 200});
  onEachPage(check);
  desktop->popup().openByPerson();
  QTest::qWait(100);
  expectRoom(desktop->popup());
  for (const auto state : {DataRootSetup::State::unconfigured, DataRootSetup::State::away}) {
    SetupView setup({.state = [=] { return state; }, .carryOut = [](auto&) {}}, "/a/folder", state);
    setup.resize(600, 500);
    setup.show();
    QTest::qWait(100);
    expectRoom(setup);
  }
}

TEST_F(AccessibilityTest, anotherLookIsTakenUpAtOnceAndKeptAndEndsNothing) {
  const auto file = folder.path() / "appearance.json";
  std::atomic<bool> isEnded = false;
  const ModelView::Operations model{.list = [] { return ModelPage{.rows = {{.name = "small"}}}; },
                                    .install = [&](auto&&, auto&&, const std::stop_token& stop) -> ModelShelf::Outcome {
                                      while (!stop.stop_requested()) std::this_thread::yield();
                                      isEnded = true;
                                      return ModelShelf::Stopped{};
                                    }};
  desktop = std::make_unique<DesktopApplication>(DayFeed::Config{.root = root, .nowMs = Clock::system().nowMs},
                                                 std::vector<PageEntry>{{"Model", "", [=] { return new ModelView(model); }}},
                                                 DesktopApplication::Look{{}, file});
  desktop->show();
  auto& window = desktop->window();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  auto* line = window.findChild<QLineEdit*>("declare");
  QTest::keyClicks(line, "half a sen");
  window.showPage(2);
  ASSERT_TRUE(eventually([&] { return window.findChild<QPushButton*>("install small"); }));
  press(window.findChild<QPushButton*>("install small"));
  const auto before = line->fontMetrics().height();
  std::map<const QLabel*, int> heights;
  for (const auto* label : window.findChildren<QLabel*>()) heights[label] = label->fontMetrics().height();
  QTest::keyClick(&window, Qt::Key_Plus, Qt::ControlModifier);
  EXPECT_TRUE(eventually([&] { return Appearance::read(file) == Appearance{.textPercent = 125}; }));
  QTest::keyClick(&window, Qt::Key_Plus, Qt::ControlModifier);
  EXPECT_TRUE(eventually([&] { return Appearance::read(file) == Appearance{.textPercent = 150}; })) << "a step from there";
  EXPECT_GT(line->fontMetrics().height(), before);
  for (const auto& [label, height] : heights) EXPECT_GT(label->fontMetrics().height(), height) << describe(label);
  EXPECT_EQ(window.currentPage(), 2);
  EXPECT_EQ(line->text(), "half a sen");
  EXPECT_TRUE(window.findChild<QWidget*>("progress")->isVisible() && !isEnded) << "an install goes on";
  desktop->setAppearance({.mode = Appearance::Mode::dark});
  EXPECT_TRUE(Theme::current().isDark);
  EXPECT_EQ(line->fontMetrics().height(), before);
  desktop.reset();
}

TEST_F(AccessibilityTest, textStandsOutFromItsGround) {
  for (const auto mode : {Theme::Mode::light, Theme::Mode::dark}) {
    Theme::install(*qApp, mode);
    const auto& t = Theme::current();
    for (const auto& ground : {t.window, t.surface, t.raised})
      for (const auto& ink : {t.text, t.muted, t.accent, t.warning, t.bad, t.good, t.quiet})
        EXPECT_GE(contrast(ink, ground), 4.5) << ink.name().toStdString() << " on " << ground.name().toStdString();
    EXPECT_GE(contrast(t.onAccent, t.accent), 4.5);
    // What the styles make of it.
    QLineEdit field;
    field.setPlaceholderText("■■■■");
    EXPECT_GE(contrastIn(field, 3, t.surface), 4.5);
    QCheckBox box;
    EXPECT_GE(contrastIn(box, 0, t.window), 3) << "unchecked";
  }
}

}  // namespace
}  // namespace halvo
