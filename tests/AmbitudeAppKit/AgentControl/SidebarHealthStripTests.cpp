#include <gtest/gtest.h>

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"

namespace halvo {
namespace {

using namespace ComponentHealth;
using SidebarHealthStrip::Tone;

TEST(SidebarHealthStrip, theWorstThingIsTheOneThatIsSaid) {
  const std::int64_t nowMs = 10'000'000;
  const CaptureFault full{CaptureFault::Kind::dataRootFull, nowMs - 125'000, nowMs - 1'800'000, 1, "d"};
  auto stale = full;
  --stale.updatedAtMs;
  const Silent silent{.lastActivityMs = nowMs - 400'000, .quietFor = 400};
  const auto hold = [&](std::int64_t forMs) { return Paused{{.sinceMs = nowMs - forMs}}; };
  const struct {
    std::optional<std::string> rootTrouble;
    std::optional<CaptureFault> fault;
    Status capture, classifier, coach;
    const char *title, *detail;
    Tone tone;
  } cases[] = {
      {"away", full, silent, silent, silent, "Recording nothing", "away", Tone::warning},
      {{}, full, silent, silent, silent, "Capture stopped — disk full", "for 2m; d", Tone::warning},
      {{}, stale, Working{}, silent, silent, "Classifier is silent", "Reading what's on it: nothing for 6m", Tone::warning},
      {{}, {}, Silent{.quietFor = 180}, silent, silent, "Capture has not been at work yet", "Recording your screen", Tone::warning},
      {{}, {}, Working{}, hold(7'200'000), Working{}, "On hold for a call", "for 2h", Tone::normal},
      {{}, {}, Working{}, hold(7'260'000), Working{}, "Still on hold for a call", "for 2h 1m", Tone::warning},
      {{}, {}, OffByChoice{}, Working{}, Working{}, "Working", "Classifier, Coach; not installed: Capture", Tone::normal},
      {{}, {}, OffByChoice{}, OffByChoice{}, OffByChoice{}, "Off", "not installed", Tone::normal}};
  for (const auto& c : cases) {
    const std::pair<Component, Status> components[] = {
        {Component::capture, c.capture}, {Component::classifier, c.classifier}, {Component::coach, c.coach}};
    const auto state = SidebarHealthStrip::state({.dataRootTrouble = c.rootTrouble, .fault = c.fault, .components = components, .nowMs = nowMs});
    EXPECT_EQ(state.title, c.title);
    EXPECT_EQ(state.detail, c.detail);
    EXPECT_EQ(state.tone, c.tone) << c.title;
  }
  const auto paused = [&](std::optional<std::string> rootTrouble, const Status& classifier, bool isUnreadable) {
    const std::pair<Component, Status> components[] = {{Component::capture, OffByChoice{}}, {Component::classifier, classifier}};
    const auto state = SidebarHealthStrip::state(
        {.dataRootTrouble = rootTrouble, .fault = full, .recordingPause = {{"paused", isUnreadable}}, .components = components, .nowMs = nowMs});
    return state.title + " / " + state.detail + (state.tone == Tone::warning ? " !" : "");
  };
  EXPECT_EQ(paused({}, Working{}, false), "Recording paused / by choice; at work: Classifier") << "whatever stopped it before";
  EXPECT_EQ(paused({}, silent, false), "Classifier is silent / Reading what's on it: nothing for 6m; recording paused !");
  EXPECT_EQ(paused({}, silent, true), "Recording paused / pause it anew, or resume it !");
  EXPECT_EQ(paused("away", silent, true), "Recording nothing / away !");
}

}  // namespace
}  // namespace halvo
