// A person at the real windows: they declare, are checked in on, answer, and ask for quiet.

#include <QLineEdit>
#include <QPushButton>

#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachStream.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"

namespace halvo {
namespace {

class ConversationTest : public test::WindowScene {
 protected:
  std::int64_t now() const { return Clock::system().nowMs(); }
  void lark(const std::string& words) const { add(AppChatEvents::coachMessage({.text = words, .asOfMs = now()})); }
  QLineEdit* field(QWidget& in, const char* name) const { return in.findChild<QLineEdit*>(name); }
};

TEST_F(ConversationTest, declareClearAndQuiet) {
  open();
  auto& window = desktop->window();
  EXPECT_TRUE(eventually([&] { return shows(window, "Nothing declared"); }));
  auto* line = field(window, "declare");
  line->setFocus();
  QTest::keyClicks(line, "write the essay for 40 min");
  QTest::keyClick(line, Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return shows(window, "write the essay") && shows(window, "left)"); }));
  EXPECT_EQ(rows("task_declared").size(), 1u);
  EXPECT_EQ(line->text(), "") << "what was kept leaves the line";

  auto* hour = window.findChild<QPushButton*>("quiet 1 hour");
  QTest::mouseClick(hour, Qt::LeftButton);
  EXPECT_TRUE(eventually([&] { return shows(window, "Quiet until "); }));
  auto* end = window.findChild<QPushButton*>("end quiet");
  EXPECT_TRUE(eventually([&] { return end->isVisible(); }));
  end->setFocus();
  QTest::keyClick(end, Qt::Key_Space);
  EXPECT_TRUE(eventually([&] { return shows(window, "Lark may speak up"); }));
  EXPECT_EQ(rows("user_quiet_cancelled").size(), 1u);

  // A root that can't be written to costs no words.
  std::filesystem::rename(root, folder.path() / "away");
  QTest::keyClicks(line, "clear");
  QTest::keyClick(line, Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return line->text() == "clear" && shows(window, "data root"); })) << "they come back, with the reason";
  std::filesystem::rename(folder.path() / "away", root);
}

TEST_F(ConversationTest, askedByThePopupAndAnsweredWithoutLosingTheKeyboard) {
  open();
  auto& popup = desktop->popup();
  auto* elsewhere = field(desktop->window(), "declare");
  elsewhere->setFocus();
  QTest::keyClicks(elsewhere, "half a sen");
  add(CoachTurnEffects::event("ui_opened", {}, now()));
  lark("Still the essay?");
  ASSERT_TRUE(eventually([&] { return popup.isVisible() && shows(popup, "Still the essay?"); }));
  EXPECT_FALSE(eventually([&] { return popup.isActiveWindow(); }, 400)) << "whoever types goes on typing";
  QTest::keyClicks(QApplication::focusWidget(), "tence");
  EXPECT_EQ(elsewhere->text(), "half a sentence");

  popup.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&popup));
  auto* say = field(popup, "say");
  QTest::mouseClick(say, Qt::LeftButton);
  QTest::keyClicks(say, "yes, back to it");
  QTest::keyClick(say, Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return !popup.isVisible(); })) << "an answer ends it";
  ASSERT_TRUE(eventually([&] { return rows("ui_closed").size() == 1; }));
  const auto said = rows("app_chat_message"), closed = rows("ui_closed");
  ASSERT_EQ(said.size(), 2u);
  EXPECT_EQ(*said[1].text("text"), "yes, back to it");
  EXPECT_EQ(closed[0].detail.find("dismissed_by"), nullptr) << "which holds nothing back";

  const auto askAgain = [&] {
    QTest::qWait(5);
    add(CoachTurnEffects::event("ui_opened", {}, now()));
    lark("And now?");
    return eventually([&] { return popup.isVisible(); });
  };
  ASSERT_TRUE(askAgain());
  QTest::qWait(5);
  PersonActions::say("answered elsewhere");
  EXPECT_TRUE(eventually([&] { return !popup.isVisible() && rows("ui_closed").size() == 2; }));
  ASSERT_TRUE(askAgain());
  popup.close();
  EXPECT_TRUE(eventually([&] { return rows("ui_closed").size() == 3; }));
  EXPECT_EQ(*rows("ui_closed")[2].text("dismissed_by"), "user");
}

TEST_F(ConversationTest, anEndOfTheApplicationIsNoDismissal) {
  add(CoachTurnEffects::event("ui_opened", {}, now()));
  lark("Still the essay?");
  open();
  ASSERT_TRUE(eventually([&] { return desktop->popup().isVisible(); }));
  auto* line = field(desktop->window(), "declare");
  QTest::keyClicks(line, "the essay");
  QTest::keyClick(line, Qt::Key_Return);
  QTimer::singleShot(0, qApp, &QApplication::quit);
  QApplication::exec();
  desktop.reset();
  EXPECT_TRUE(rows("ui_closed").empty());
  EXPECT_EQ(rows("task_declared").size(), 1u) << "what was asked for in the last moment is done";
  open();
  EXPECT_TRUE(eventually([&] { return desktop->popup().isVisible(); })) << "it is still unanswered";
}

TEST_F(ConversationTest, theReplyIsShownAsItIsWrittenAndEffectsCanBeUndone) {
  open();
  auto& window = desktop->window();
  window.showPage(1);
  const auto turnMs = now();
  CoachStreamWriter stream(CoachStream::url(root), CoachStream::turnID(turnMs));
  stream.append({.thinking = "hm"});
  EXPECT_TRUE(eventually([&] { return shows(window, "Lark is thinking"); }));
  stream.append({.text = "Ten min"});
  EXPECT_TRUE(eventually([&] { return shows(window, "Lark: Ten min"); }));
  stream.append({.text = "An hour", .reset = true});
  EXPECT_TRUE(eventually([&] { return shows(window, "Lark: An hour"); }));
  QTest::qWait(5);
  PersonActions::say("or two?");  // while the reply is written, whose row has the time of the turn's beginning
  ASSERT_TRUE(eventually([&] { return shows(window, "or two?"); }));
  add(UserQuietRequestedEvent::make({.untilMs = turnMs + 3'600'000, .asOfMs = turnMs}));
  add(AppChatEvents::coachMessage({.text = "An hour it is.", .thinking = "hm", .asOfMs = turnMs}));
  EXPECT_TRUE(eventually([&] { return shows(window, "An hour it is.") && !shows(window, "Lark: An hour"); }));
  EXPECT_FALSE(shows(window, "hm")) << "thinking is folded away";
  for (auto* button : window.findChildren<QPushButton*>())
    if (button->text().startsWith("Thinking")) QTest::mouseClick(button, Qt::LeftButton);
  EXPECT_TRUE(shows(window, "hm"));
  QPushButton* undo = nullptr;
  for (auto* button : window.findChildren<QPushButton*>())
    if (button->text() == "Undo") undo = button;
  ASSERT_NE(undo, nullptr);
  QTest::mouseClick(undo, Qt::LeftButton);
  EXPECT_TRUE(eventually([&] { return shows(window, "Quiet is over"); }));
}

TEST_F(ConversationTest, larksDeclarationGivesWayToTheOneBeforeAndAnOfferIsTaken) {
  const auto declared = [&](JSONObject detail, std::int64_t agoMs) {
    add({.tsMs = now() - agoMs, .kind = "event", .type = "task_declared", .detail = std::move(detail), .source = "test"});
  };
  declared({{"task", "essay"}, {"until", "lunch"}, {"why", "due"}}, 9 * 86'400'000LL);
  declared({{"task", "email"}, {"notes", "email"}}, 1'000);
  add(CoachTurnEffects::event("option_card_offered",
                              {{"title", "How long?"}, {"options", JSONValue::Array{JSONObject{{"label", "An hour"}}, JSONObject{{"label", "Two"}}}}}, now()));
  open();
  auto& window = desktop->window();
  window.showPage(1);
  const auto button = [&](const char* label) {
    for (auto* found : window.findChildren<QPushButton*>())
      if (found->text() == label && found->isVisible()) return found;
    return static_cast<QPushButton*>(nullptr);
  };
  ASSERT_TRUE(eventually([&] { return button("Undo") && button("An hour"); }));
  press(button("An hour"));
  ASSERT_TRUE(eventually([&] { return rows("app_chat_message").size() == 1 && !button("An hour") && button("Undo"); }));
  EXPECT_EQ(*rows("app_chat_message")[0].text("text"), "An hour");
  press(button("Undo"));
  ASSERT_TRUE(eventually([&] { return desktop->feed().now().task == "essay" && !button("Undo"); }));
  const auto anew = rows("task_declared").back();
  EXPECT_EQ(*anew.text("until") + *anew.text("why"), "lunchdue");
  EXPECT_EQ(PersonActions::takeBackDeclaration(rows("task_declared")[1].tsMs, now(), Calendar::local()), "another declaration came since");
}

}  // namespace
}  // namespace halvo
