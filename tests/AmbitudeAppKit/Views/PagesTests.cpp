// The other pages, used as a person uses them.

#include <csignal>
#include <set>

#include <sys/resource.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>

#include "AmbitudeAppKit/Stores/Corrections.h"
#include "AmbitudeAppKit/Stores/OwnDenylist.h"
#include "AmbitudeAppKit/Views/ExportView.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/InventedDay.h"

namespace halvo {
namespace {

class PagesTest : public test::WindowScene {
 protected:
  Page& openPage(const QString& name) {
    open();
    auto& window = desktop->window();
    for (int i = 0; i < window.pageCount(); ++i)
      if (window.page(i)->accessibleName() == name) {
        window.showPage(i);
        return *window.page(i);
      }
    throw std::runtime_error("no such page");
  }
  static QPushButton* button(QWidget& in, const QString& label) {
    for (auto* found : in.findChildren<QPushButton*>())
      if (found->text() == label && found->isVisible()) return found;
    return nullptr;
  }
  /// Presses a button and gives its file dialog a name.
  static void pressAndName(QPushButton* asked, const std::filesystem::path& name) {
    pressAnd(asked, [&](QDialog& dialog) {
      dialog.findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(name.string()));
      QMetaObject::invokeMethod(&dialog, "accept");
    });
  }
};

TEST_F(PagesTest, memoryIsShownTaughtAndForgotten) {
  test::InventedDay::write(root, Calendar::local());
  auto& page = openPage("Memory");
  ASSERT_TRUE(eventually([&] { return shows(page, "The essay on tides") && shows(page, "concluded, not said"); }));
  ASSERT_TRUE(shows(page, "don't ask what my first step is"));
  auto* note = page.findChild<QPlainTextEdit*>("note coach");
  QTest::keyClicks(note, "be blunt");
  press(button(page, "Save notes"));
  EXPECT_TRUE(eventually([&] { return CoachPreferencesStore::read(root).coachInstructions == "be blunt" && !note->document()->isModified(); }));
  // A note that was changed elsewhere stays, and a save that fails costs no words.
  auto elsewhere = CoachPreferencesStore::read(root);
  elsewhere.gateInstructions = "not before ten";
  CoachPreferencesStore::write(root, elsewhere);
  QTest::keyClicks(note, " or not");
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  ::getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit nothing{.rlim_cur = 0, .rlim_max = usual.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &nothing);
  press(button(page, "Save notes"));
  EXPECT_TRUE(eventually([&] { return shows(page, "not changed: "); }));
  EXPECT_FALSE(eventually([&] { return !note->document()->isModified() || !shows(page, "not changed: "); }, 300));
  ::setrlimit(RLIMIT_FSIZE, &usual);
  press(button(page, "Save notes"));
  ASSERT_TRUE(eventually([&] { return !note->document()->isModified() && !shows(page, "not changed: "); }));
  EXPECT_EQ(CoachPreferencesStore::read(root).gateInstructions, "not before ten");
  press(button(page, "Delete"));
  EXPECT_TRUE(eventually([&] { return shows(page, "Nothing yet. Tell Lark"); }));
  EXPECT_TRUE(Corrections::list(root).empty());

  pressAndAnswer(button(page, "Forget everything…"), "Cancel");
  EXPECT_TRUE(shows(page, "The essay on tides"));
  pressAndAnswer(button(page, "Forget everything…"), "Forget");
  EXPECT_TRUE(eventually([&] { return shows(page, "is forgotten") && !shows(page, "The essay on tides"); }));
}

TEST_F(PagesTest, retentionIsChosenPreviewedAndApplied) {
  const auto old = root / "video/display-0/2020-01-02T03.mkv";
  folder.write("data/video/display-0/2020-01-02T03.mkv", std::string(2'000'000, 'x'));
  std::filesystem::last_write_time(old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(9'000));
  auto& page = openPage("Recordings");
  auto* days = page.findChild<QComboBox*>("keep for");
  auto* erase = page.findChild<QPushButton*>("delete recordings");
  EXPECT_TRUE(eventually([&] { return shows(page, "Retention is off"); }));
  days->setFocus();
  for (int i = 0; i < 3; ++i) QTest::keyClick(days, Qt::Key_Down);  // a day, three, a week
  const auto settings = RetentionSettingsStore::path(processEnvironment());
  EXPECT_TRUE(eventually([&] { return VideoRetention::days(RetentionSettingsStore::read(settings).policy) == 7; }));
  ASSERT_TRUE(eventually([&] { return erase->isEnabled() && shows(page, "to delete: 1 file(s), 2 MB"); }));
  EXPECT_EQ(page.findChild<QTableWidget*>()->item(0, 3)->text(), "over 1 week old");
  pressAndAnswer(erase, "Cancel");
  EXPECT_TRUE(std::filesystem::exists(old));
  pressAndAnswer(erase, "Delete");
  EXPECT_TRUE(eventually([&] { return shows(page, "deleted: 1 file(s), 2 MB freed"); }));
  EXPECT_FALSE(std::filesystem::exists(old));
  RetentionSettingsStore::change(settings, [](auto& kept) { kept.labelLookbackHours = 9; });
  QTest::keyClick(page.findChild<QCheckBox*>("on restart"), Qt::Key_Space);
  EXPECT_TRUE(eventually([&] { return shows(page, "deletes what was recorded before the last start too") && shows(page, "from 9 hours before it to 1 hour"); }));
  writeFileAtomically(settings, "{");
  QTest::keyClick(days, Qt::Key_Down);
  EXPECT_TRUE(eventually([&] { return shows(page, "not changed: ") && shows(page, "so retention is off until it is mended"); }));
  EXPECT_EQ(readFile(settings), "{") << "what it held can still be mended";
}

TEST_F(PagesTest, recordingIsPausedResumedAndMadeSmaller) {
  auto& page = openPage("Recordings");
  const auto controls = [&] { return RecordingControls::read(root); };
  ASSERT_TRUE(eventually([&] { return shows(page, "nothing has been recorded yet"); }));
  press(button(page, "Pause for an hour"));
  ASSERT_TRUE(eventually([&] { return shows(page, "Recording paused until ") && button(page, "Resume"); }));
  EXPECT_EQ(*controls().pausedUntilMs - *controls().pausedAtMs, 3'600'000);
  EXPECT_EQ(QApplication::focusWidget(), button(page, "Resume")) << "the keyboard isn't lost";
  auto* health = desktop->window().findChild<QLabel*>("health");
  EXPECT_TRUE(eventually([&] { return health->text().contains("ecording paused until "); })) << "the line of the window's health says it too";
  QTest::keyClick(button(page, "Resume"), Qt::Key_Space);
  ASSERT_TRUE(eventually([&] { return button(page, "Pause until I resume"); }));
  EXPECT_FALSE(controls().pausedAtMs);
  auto* quality = page.findChild<QComboBox*>("recording quality");
  quality->setFocus();
  QTest::keyClick(quality, Qt::Key_Down);
  EXPECT_TRUE(eventually([&] { return controls().quality == RecordingControls::Quality::compact; }));
  folder.write("data/recording-controls.json", "{");
  EXPECT_TRUE(eventually([&] { return shows(page, "can't be read"); })) << "the page follows the file";
}

TEST_F(PagesTest, theDenylistIsKeptAndCallsAreToldApart) {
  TurnUsageRecordLog::append(TurnUsageRecord{.atMs = 1, .layer = "gate", .promptTokens = 7}, TurnUsageRecordLog::defaultURL(root));
  TurnUsageRecordLog::append(TurnUsageRecord{.atMs = 2, .layer = "coach", .provider = "Northwind", .promptTokens = 900},
                             TurnUsageRecordLog::defaultURL(root));
  auto& page = openPage("Privacy");
  auto* calls = page.findChild<QTableWidget*>();
  ASSERT_TRUE(eventually([&] { return calls->rowCount() == 2; }));
  EXPECT_EQ(calls->item(0, 2)->text().toStdString(), "Northwind") << "newest first";
  EXPECT_EQ(calls->item(1, 2)->text().toStdString(), "the local model, or a service that gave no name");
  auto* list = page.findChild<QPlainTextEdit*>("denylist");
  EXPECT_TRUE(list->toPlainText().contains("1Password"));
  list->selectAll();
  QTest::keyClicks(list, " Diary, Vault ");
  press(button(page, "Save list"));
  EXPECT_TRUE(eventually([&] { return shows(page, "Saved."); }));
  EXPECT_EQ(readFile(OwnDenylist::file(processEnvironment())), "AMBITCAP_DENYLIST=\"Diary,Vault\"\n");
  EXPECT_TRUE(eventually([&] { return !list->document()->isModified() && shows(page, "Until then the built-in list is in force"); }));
  QTest::keyClicks(list, ", $HOME");
  press(button(page, "Save list"));
  EXPECT_TRUE(eventually([&] { return shows(page, "this name can't be kept: $HOME"); }));
  EXPECT_EQ(OwnDenylist::read(processEnvironment()), (std::vector<std::string>{"Diary", "Vault"}));
}

TEST_F(PagesTest, theReportIsShownBeforeItIsSavedAndSavedAsShown) {
  const auto log = std::filesystem::path(std::getenv("HOME")) / "Library/Logs/Halvo/Supervisor.log";
  std::filesystem::create_directories(log.parent_path());
  writeFileAtomically(log, "Signals runs\nthe window of a secret\n");
  auto& page = openPage("Diagnostics");
  auto* report = page.findChild<QPlainTextEdit*>("report");
  ASSERT_TRUE(eventually([&] { return report->toPlainText().contains("Signals runs"); }));
  EXPECT_TRUE(report->toPlainText().contains("1 left out") && !report->toPlainText().contains("secret"));
  const auto file = folder.path() / "report.txt";
  pressAndName(button(page, "Save as…"), file);
  ASSERT_TRUE(eventually([&] { return shows(page, "Saved to "); }));
  EXPECT_EQ(readFile(file), report->toPlainText().toStdString());
  pressAndName(button(page, "Save as…"), folder.path() / "none/report.txt");
  EXPECT_TRUE(eventually([&] { return shows(page, "Not saved: "); }));
}

TEST_F(PagesTest, whatIsChosenIsExportedAndAFailureIsTold) {
  add(AppChatEvents::coachMessage({.text = "Still the essay?", .asOfMs = Clock::system().nowMs()}));
  auto& page = openPage("Export");
  for (auto* box : page.findChildren<QCheckBox*>()) box->setChecked(!box->text().startsWith("Verdicts"));
  const auto start = button(page, "Choose a folder…");
  pressAndName(start, folder.path());
  ASSERT_TRUE(eventually([&] { return shows(page, "events.jsonl: 1 row(s)"); }));
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
    if (entry.path().parent_path().filename().string().find("-to-") != std::string::npos) files.insert(entry.path().filename());
  EXPECT_EQ(files, (std::set<std::string>{"events.jsonl", "samples.csv"}));
  pressAndName(start, folder.path());
  EXPECT_TRUE(eventually([&] { return shows(page, "Nothing was written: ") && shows(page, "File exists"); })) << "never over another";
}

TEST_F(PagesTest, anExportOfNothingIsRefused) {
  ExportView page({root, Calendar::local(), [] { return Calendar::local().instant(2026, 3, 4, 15); }});
  page.show();
  const auto days = page.findChildren<QDateEdit*>();
  EXPECT_EQ(days[1]->date(), QDate(2026, 3, 4));
  days[1]->setDate(days[0]->date().addDays(-1));
  QTimer::singleShot(1'000, [] { if (auto* dialog = QApplication::activeModalWidget()) dialog->close(); });
  press(button(page, "Choose a folder…"));
  EXPECT_TRUE(shows(page, "the last day is before the first"));
  days[1]->setDate(days[0]->date());
  for (auto* box : page.findChildren<QCheckBox*>()) box->setChecked(false);
  press(button(page, "Choose a folder…"));
  EXPECT_TRUE(shows(page, "nothing is chosen"));
}

}  // namespace
}  // namespace halvo
