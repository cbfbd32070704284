// What the agents cost while nothing happens.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>

#include <fmt/format.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "tests/support/Eventually.h"
#include "tests/support/Household.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestWindow.h"

namespace halvo {
namespace {

constexpr std::array agents{"Signals", "ClassifierVerify", "CoachDriver"};
constexpr double lookSec = 20;

/// Seconds of a core that a process and the children it has waited for have used.
double cpuSec(pid_t pid) {
  const auto text = readFile(fmt::format("/proc/{}/stat", pid));
  const auto fields = Text::split(std::string_view(text).substr(text.rfind(')') + 2), ' ');
  double ticks = 0;
  for (const auto at : {11, 12, 13, 14}) ticks += std::stod(std::string(fields.at(at)));
  return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double residentMB(pid_t pid) {
  const auto text = readFile(fmt::format("/proc/{}/status", pid));
  return std::stod(text.substr(text.find("VmRSS:") + 6)) / 1024;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double room = 20;  // a sanitizer's cost is not the agents' own
#else
constexpr double room = 1;
#endif

TEST(Idle, theAgentsAreLightEnoughToForget) {
  const test::TemporaryFolder folder;
  test::Desktop desktop;
  test::TestWindow editor(desktop.screen.display(), {.title = "the essay", .className = "Gedit", .text = "the essay", .textScale = 2});
  editor.activate();
  test::Household house(HALVO_BIN, folder.path() / "house", desktop);
  house.environment.erase("AMBITCHECK_LOOP_SEC");
  house.startModel();
  ASSERT_EQ(house.run("halvo", {"declare", "write the essay"}), 0);
  for (const auto* agent : agents) house.start(agent);
  ASSERT_TRUE(test::eventually([&] { return house.sawVerdict("ON_TASK", "Gedit"); }, 60)) << "the one judgment that is due";
  const auto usedBy = [&] {
    std::map<std::string, double> used;
    for (const auto* agent : agents) used[agent] = cpuSec(house.program(agent).pid());
    return used;
  };
  ASSERT_TRUE(test::eventually([&] { return !house.logLines("CoachDriver").empty(); }, 10));
  Clock::system().wait(2, {});  // the consultation that the judgment brings

  auto before = usedBy();
  Clock::system().wait(lookSec, {});
  double all = 0;
  for (const auto& [agent, used] : usedBy()) {
    const auto megabytes = residentMB(house.program(agent).pid());
    std::printf("%-16s %.2f %% of a core, %.1f MB\n", agent.c_str(), (used - before[agent]) / lookSec * 100, megabytes);
    EXPECT_LT(megabytes, 40 * room) << agent;
    all += used - before[agent];
  }
  std::printf("%-16s %.2f %% of a core\n", "together", all / lookSec * 100);
  EXPECT_LT(all / lookSec, 0.03 * room);  // aim: 0.01; the rest is room for a machine with other work
}

}  // namespace
}  // namespace halvo
