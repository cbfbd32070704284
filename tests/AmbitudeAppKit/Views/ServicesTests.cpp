// The agents' page over a service manager that is driven by hand.

#include <QComboBox>
#include <QPlainTextEdit>
#include <QTableWidget>

#include "AmbitudeAppKit/Views/ServicesView.h"
#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "Platform/Testing/FakeServiceManager.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"

namespace halvo {
namespace {

class ServicesTest : public test::WindowScene {};

TEST_F(ServicesTest, agentsComeAndGoAndAreRead) {
  FakeServiceManager manager;
  for (const auto& agent : backgroundAgents) {
    const auto program = folder.path() / "bin" / agent.program;
    folder.write("bin/" + std::string(agent.program), "");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    manager.jobs[label(agent.agent)].program = program;
  }
  const auto log = AgentLogging::logURL(AgentProcess::logSubdirectory, "CoachDriver");
  std::filesystem::create_directories(log.parent_path());
  writeFileAtomically(log, "awake\nasleep\n");
  ServicesView page(ServicesView::Operations::of(std::make_shared<AgentActions>(
      AgentActions::Dependencies{.control = {.services = manager, .programFolder = folder.path() / "bin", .legacyFolder = folder.path()},
                                 .unitFolder = folder.path() / "units",
                                 .markerFolder = folder.path() / "markers",
                                 .configFile = folder.path() / "config.json",
                                 .allowed = AgentServiceMigration::Precondition::ok,
                                 .clock = {.nowMs = {}, .wait = [](double, const std::stop_token&) {}}})));
  page.resize(900, 700);
  page.setVisible(true);
  page.shown();
  auto* table = page.findChild<QTableWidget*>();
  auto* which = page.findChild<QComboBox*>("which agents");
  const auto button = [&](const QString& label) -> QPushButton* {
    for (auto* found : page.findChildren<QPushButton*>())
      if (found->text() == label) return found;
    return nullptr;
  };
  ASSERT_TRUE(eventually([&] { return table->rowCount() == 5 && shows(page, "No agent is on"); }));
  press(button("Install"));
  ASSERT_TRUE(eventually([&] { return shows(page, "Local model: installed") && table->item(1, 1)->text() == "running"; }));
  EXPECT_FALSE(shows(page, "No agent is on"));
  EXPECT_EQ(table->item(0, 5)->text(), "has not been at work yet") << "a process that is there may record nothing";

  table->selectRow(1);
  EXPECT_EQ(which->currentText(), "Coach");
  auto* lines = page.findChild<QPlainTextEdit*>("agent log");
  EXPECT_TRUE(eventually([&] { return lines->isVisible() && lines->toPlainText() == "awake\nasleep"; }));
  for (const char* answer : {"Cancel", "Remove"}) {
    EXPECT_TRUE(manager.jobs[label(BackgroundAgent::coachDriver)].isRegistered);
    pressAndAnswer(button("Remove…"), answer);
  }
  EXPECT_TRUE(eventually([&] { return shows(page, "Coach: removed") && shows(page, "Not on: Coach."); }));
  manager.failingCall = manager.calls.size();
  press(button("Install"));
  EXPECT_TRUE(eventually([&] { return shows(page, "Coach couldn't be turned on just now. Try again"); }));
  EXPECT_TRUE(manager.jobs[label(BackgroundAgent::captureSupervisor)].isRegistered) << "only the chosen one is meant";
}

}  // namespace
}  // namespace halvo
