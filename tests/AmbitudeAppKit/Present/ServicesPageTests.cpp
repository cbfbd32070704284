#include <gtest/gtest.h>

#include "AmbitudeAppKit/Present/ServicesPage.h"

namespace halvo {
namespace {

using State = BackgroundAgentState;
using Agent = BackgroundAgent;

TEST(ServicesPage, rows) {
  const struct { State state; const char* line; ServicesPage::Row want; } cases[] = {
      {{.agent = Agent::coachDriver, .runState = State::Running{7}, .missingConfigKeys = {"A", "B"}, .since = "noon"},
       "",
       {Agent::coachDriver, "Coach", "running", "7", "-", "noon", "A, B is not set"}},
      {{.agent = Agent::consolidate, .runState = State::Idle{0, 3}}, "", {Agent::consolidate, "Nightly memory", "idle", "-", "0", "-", ""}},
      {{.agent = Agent::consolidate, .runState = State::Idle{}},
       "",
       {Agent::consolidate, "Nightly memory", "waiting for its first run", "-", "-", "-", ""}},
      {{.agent = Agent::classifier, .runState = State::Failing{3}, .launchdDisabled = true},
       "it stays",
       {Agent::classifier, "Classifier", "failing", "-", "3", "-", "held off by the service manager; it stays"}},
      {{.runState = State::Unknown{"no bus"}, .runsFromLegacyPlist = true},
       "",
       {Agent::captureSupervisor, "Capture", "unknown", "-", "-", "-", "runs from an old installation; no bus"}}};
  for (const auto& c : cases)
    EXPECT_EQ(ServicesPage::of(std::span(&c.state, 1), {{c.state.agent, c.line}}).rows.at(0), c.want) << c.want.health;
}

TEST(ServicesPage, bannersSayOnlyWhatIsKnown) {
  using enum ServiceStatus;
  const State::RunState runs = State::Running{1}, stopped = State::InstalledNotLoaded{}, none = State::NotInstalled{},
                        asks = State::RequiresApproval{};
  const struct {
    State::RunState capture, coach;
    std::optional<ServiceStatus> captureIs, coachIs;
    std::vector<std::string> want;
  } cases[] = {
      {runs, runs, enabled, enabled, {}},
      {stopped, State::Failing{1}, enabled, enabled, {"Capture is installed and does not run: nothing is recorded."}},
      {runs, State::Failing{1}, enabled, enabled, {"The coach is installed and does not run: Lark says nothing."}},
      {runs, none, enabled, notRegistered, {"Not on: Coach."}},
      {none, none, notRegistered, notFound, {"No agent is on: nothing is recorded or judged, and Lark says nothing."}},
      {asks, runs, requiresApproval, enabled, {"Capture waits for your approval: nothing is recorded until then.", "Not on: Capture."}},
      {State::Unknown{"no bus"}, State::Unknown{"no bus"}, enabled, enabled, {}},
      {State::Unknown{"no bus"}, none, {}, notRegistered, {}}};
  for (const auto& c : cases) {
    const State states[] = {{.agent = Agent::captureSupervisor, .runState = c.capture, .registration = c.captureIs},
                            {.agent = Agent::coachDriver, .runState = c.coach, .registration = c.coachIs}};
    EXPECT_EQ(ServicesPage::of(states).banners, c.want);
  }
}

}  // namespace
}  // namespace halvo
