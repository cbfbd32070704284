// Past moments at the real window, answered by keyboard.

#include <algorithm>

#include <QCheckBox>
#include <QLineEdit>
#include <QSpinBox>

#include "AmbitudeAppKit/Views/ClipView.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Labels/LabelHistory.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/InventedDay.h"

namespace halvo {
namespace {

struct ReviewTest : test::WindowScene {
  static constexpr int pageIndex = 2;

  /// Three verdicts of this hour, without footage.
  void recordMoments() const {
    for (int i = 1; i <= 3; ++i) {
      const auto atMs = Clock::system().nowMs() - i * 600'000;
      const ClassifierTick tick{.at = ISO8601::utcMillis(atMs), .state = "NOT_ALIGNED", .frontmostApp = "Signal",
                                .reason = "the verdict's reason", .confidence = 0.9, .declaredTask = "write the essay"};
      JSONLAppend::append(std::string_view(tick.encode()), DataPaths::checkerLog(root));
    }
  }
  QWidget& review() {
    open();
    desktop->window().showPage(pageIndex);
    return *desktop->window().page(pageIndex);
  }
  static void key(QWidget& page, int code) { QTest::keyClick(&page, static_cast<Qt::Key>(code)); }
  static bool isTold(QWidget& page, const QString& words) {
    for (const auto* label : page.findChildren<QLabel*>())
      if (label->text().contains(words)) return true;
    return false;
  }
  std::vector<LabelHistory::Row> labels() const { return LabelHistory::read(DataPaths::labelsDB(root)); }
  /// Two seconds of ten frames each.
  void writeClip(const std::filesystem::path& file, const char* size) const {
    ASSERT_EQ(Spawn::wait(Spawn::run(ffmpeg, {"-v", "error", "-f", "lavfi", "-i", std::string("testsrc=rate=10:duration=2:size=") + size, "-pix_fmt",
                                              "yuv420p", file}, std::nullopt, {})), 0);
  }
  std::filesystem::path ffmpeg = FFmpegResolver::resolve(processEnvironment());
};

TEST_F(ReviewTest, theClipGoesWithThePageAndAnAnswerIsChanged) {
  test::InventedDay::write(root, Calendar::local());
  test::InventedDay::leaveReview(root, Calendar::local());
  const auto file = folder.path() / "moment.mp4";
  auto operations = desktopNeeds().review;
  operations.makeClip = [&](std::int64_t, const std::stop_token&) {
    writeClip(file, "640x360");
    return MomentClip{.file = file, .fps = 10, .frameCount = 20};
  };
  operations.dropClip = [&] { std::filesystem::remove(file); };
  auto page = std::make_unique<ReviewView>(operations);
  auto* clip = page->findChild<ClipView*>();
  page->resize(900, 740);
  page->setVisible(true);
  page->shown();
  ASSERT_TRUE(eventually([&] { return clip->frameShown() > 0; }));
  key(*page, Qt::Key_Space);
  EXPECT_FALSE(clip->isPlaying());
  page->hide();
  EXPECT_EQ(clip->frameShown(), -1);
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(file); }));
  page->setVisible(true);
  ASSERT_TRUE(eventually([&] { return clip->isPlaying() && clip->frameShown() > 0; }));
  key(*page, Qt::Key_R);
  EXPECT_TRUE(eventually([&] { return shows(*page, "won't count as a blind one"); }));
  key(*page, Qt::Key_1);
  ASSERT_TRUE(eventually([&] { return shows(*page, "You said: on task"); }));
  EXPECT_FALSE(labels().back().answeredBlind.value_or(true));
  page.reset();
  EXPECT_FALSE(std::filesystem::exists(file)) << "nothing outlives the page";
}

TEST_F(ReviewTest, anOpenReviewIsGivenUpForAnotherOnlyWhenAsked) {
  recordMoments();
  auto& page = review();
  const auto button = [&](const char* name) { return page.findChild<QPushButton*>(name); };
  ASSERT_TRUE(eventually([&] { return button("draw")->isVisible(); }));
  page.findChild<QCheckBox*>("without footage")->click();
  press(button("draw"));
  ASSERT_TRUE(eventually([&] { return shows(page, "1 of 3"); }));
  key(page, Qt::Key_1);
  ASSERT_TRUE(eventually([&] { return shows(page, "You said: on task"); }));
  press(button("another"));
  pressAndAnswer(button("draw"), "Cancel");
  EXPECT_TRUE(shows(page, "You said: on task"));
  page.findChild<QSpinBox*>("limit")->setValue(1);
  pressAndAnswer(button("draw"), "Draw another");
  EXPECT_TRUE(eventually([&] { return shows(page, "1 of 1") && !button("draw")->isVisible(); }));
  EXPECT_EQ(labels().size(), 1u) << "the answer is kept";
}

TEST_F(ReviewTest, threeMomentsByKeyboardLeftAndResumed) {
  recordMoments();
  auto* page = &review();
  auto* draw = page->findChild<QPushButton*>("draw");
  ASSERT_TRUE(eventually([&] { return draw->isVisible(); }));
  press(draw);
  ASSERT_TRUE(eventually([&] { return shows(*page, "that footage can be shown of"); }));
  page->findChild<QCheckBox*>("without footage")->click();
  press(draw);
  ASSERT_TRUE(eventually([&] { return shows(*page, "1 of 3") && shows(*page, "You meant to: write the essay") && shows(*page, "No clip: "); }));
  EXPECT_FALSE(isTold(*page, "the verdict's reason") || isTold(*page, "90 %")) << "not even out of sight";

  const auto labelsFile = DataPaths::labelsDB(root);
  std::filesystem::rename(labelsFile, folder.path() / "away");
  std::filesystem::create_directory(labelsFile);
  key(*page, Qt::Key_C);
  auto* comment = page->findChild<QLineEdit*>("comment");
  QTest::keyClicks(comment, "1 chat");
  key(*comment, Qt::Key_Return);
  key(*page, Qt::Key_5);
  ASSERT_TRUE(eventually([&] { return shows(*page, "Your answer could not be kept."); }));
  EXPECT_EQ(comment->text(), "1 chat") << "the words stay";
  EXPECT_FALSE(isTold(*page, "the verdict's reason"));
  std::filesystem::remove(labelsFile);
  std::filesystem::rename(folder.path() / "away", labelsFile);
  key(*page, Qt::Key_5);
  key(*page, Qt::Key_2);  // too early for the question that comes
  ASSERT_TRUE(eventually([&] { return shows(*page, "The verdict: not aligned (90 % sure): the verdict's reason"); }));
  key(*page, Qt::Key_3);
  ASSERT_TRUE(eventually([&] { return !shows(*page, "Was the reason"); }));
  EXPECT_NE(readFile(root / "reason-human-labels.jsonl").find("\"rule\":\"topic_not_moment\""), std::string::npos);

  desktop.reset();
  page = &review();
  ASSERT_TRUE(eventually([&] { return shows(*page, "1 of 3") && shows(*page, "The verdict: "); })) << "goes on where it was left";
  for (const auto* next : {"2 of 3", "3 of 3", "Done: 3 answered"}) {
    ASSERT_TRUE(eventually([&] { return shows(*page, "Was the reason"); }));
    key(*page, Qt::Key_S);
    ASSERT_TRUE(eventually([&] { return !shows(*page, "Was the reason"); }));
    if (!shows(*page, "Was the gate")) key(*page, Qt::Key_Return);
    else key(*page, Qt::Key_1);
    ASSERT_TRUE(eventually([&] { return shows(*page, next); })) << next;
    if (shows(*page, "Done")) break;
    EXPECT_FALSE(shows(*page, "The verdict: "));
    key(*page, Qt::Key_1);
  }
  EXPECT_TRUE(shows(*page, "agreed: 1 of 3"));
  const auto rows = labels();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(std::ranges::count(rows, "not_aligned", &LabelHistory::Row::label), 1);
  const SQLiteDB db(labelsFile);
  auto note = db.prepare("SELECT user_note FROM labels WHERE label = 'not_aligned'");
  ASSERT_TRUE(note.step());
  EXPECT_EQ(note.optionalText(0), "1 chat");
}

TEST_F(ReviewTest, aClipPlaysPausesAndSteps) {
  const auto file = folder.path() / "clip.mp4";
  writeClip(file, "64x36");
  ClipView view;
  QString failure;
  QObject::connect(&view, &ClipView::failed, [&](const QString& words) { failure = words; });
  view.resize(320, 180);
  view.show();
  const ClipView::Clip clip{.ffmpeg = ffmpeg, .file = file, .fps = 10, .frameCount = 20};
  view.play(clip);
  ASSERT_TRUE(eventually([&] { return view.frameShown() >= 3; }));
  QTest::keyClick(&view, Qt::Key_Space);
  const auto stood = view.frameShown();
  EXPECT_FALSE(view.isPlaying());
  EXPECT_FALSE(eventually([&] { return view.frameShown() > stood + 1; }, 400)) << "what was asked for may still come";
  const auto before = view.frameShown();
  const auto picture = view.grab().toImage();
  QTest::keyClick(&view, Qt::Key_Left);
  ASSERT_TRUE(eventually([&] { return view.frameShown() == before - 1; }));
  EXPECT_NE(view.grab().toImage(), picture);
  QTest::keyClick(&view, Qt::Key_Right);
  ASSERT_TRUE(eventually([&] { return view.frameShown() == before; }));
  EXPECT_EQ(view.grab().toImage(), picture) << "the same frame, decoded anew";
  QTest::keyClick(&view, Qt::Key_Space);
  EXPECT_TRUE(eventually([&] { return view.frameShown() == 19 && !view.isPlaying(); })) << "to its end";
  view.stop();
  EXPECT_EQ(view.frameShown(), -1);
  folder.write("clip.mp4", "no clip");
  view.play(clip);
  EXPECT_TRUE(eventually([&] { return failure.startsWith("The clip can't be played."); }));
}

}  // namespace
}  // namespace halvo
