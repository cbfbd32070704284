// The stretch of the scene in which they ask to be left alone, and teach Lark something.

#include <algorithm>

#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Records/GateDecisionRecord.h"
#include "tools/Scene/Scene.h"

namespace halvo {

namespace {

constexpr const char* plea = "leave me alone for an hour";
constexpr const char* lesson = "don't ask what my first step is";
constexpr const char* question = "what have i told you?";

int gateDecisions(const std::filesystem::path& root, std::int64_t fromMs, std::int64_t toMs) {
  int found = 0;
  const auto bytes = readFile(root / "gate-decisions.jsonl");
  for (const auto line : Text::split(bytes, '\n'))
    if (const auto record = GateDecisionRecord::decode(line)) found += record->atMs >= fromMs && record->atMs <= toMs;
  return found;
}

bool sawSince(const test::Household& files, std::int64_t fromMs, const std::string& app) {
  const auto verdicts = files.verdicts();
  return std::ranges::any_of(verdicts, [&](const ClassifierTick& tick) { return tick.frontmostApp == app && tick.atMs() > fromMs; });
}

bool driftedSince(const test::Household& files, std::int64_t fromMs) {
  const auto verdicts = files.verdicts();
  return std::ranges::any_of(verdicts, [&](const ClassifierTick& tick) {
    return tick.state == "NOT_ALIGNED" && tick.frontmostApp == "firefox" && tick.atMs() > fromMs;
  });
}

}  // namespace

void Scene::beLeftAlone() {
  print("* closing the conversation, and asking to be left alone");
  EventLogWriter::append(CoachTurnEffects::userDismissedUIEvent(Clock::system().nowMs()), DataPaths::events(dataRoot()), "AmbitudeApp");
  command("halvo", {"say", plea});
  expect("the quiet, through the tool", 60,
         [&] { return household_->eventTime(std::string(EventType::userQuietRequested)).has_value(); });
  command("halvo", {"quiet"});
  const auto quietMs = *household_->eventTime(std::string(EventType::userQuietRequested));
  print("* drifting all the same");
  editor_->activate();
  expect("a verdict on the editor", 90, [&] { return sawSince(*household_, quietMs, "Gedit"); });
  const auto backMs = Clock::system().nowMs();
  videoSite_->activate();
  expect("drift that nobody speaks of", 90, [&] { return driftedSince(*household_, backMs); });
  reached(Step::quiet);
  print("* taking it back");
  command("halvo", {"quiet", "off"});
  const auto overMs = *household_->eventTime(std::string(EventType::userQuietCancelled));
  expect("a look of the gate", 60, [&] { return gateDecisions(dataRoot(), overMs, Clock::system().nowMs()) > 0; });
}

void Scene::teach() {
  print("* teaching Lark something");
  command("halvo", {"say", lesson});
  expect("the correction, through the tool", 60,
         [&] { return household_->eventTime(std::string(EventType::correctionRecorded)).has_value(); });
  command("halvo", {"corrections"});
  const auto askedMs = Clock::system().nowMs();
  command("halvo", {"say", question});
  expect("what stands in its next prompt", 60, [&] { return household_->messageTime("coach", askedMs).has_value(); });
  reached(Step::taught);
}

std::vector<std::pair<const char*, bool>> Scene::quietFacts() const {
  const auto requested = household_->eventTime(std::string(EventType::userQuietRequested), [](const EventLogEvent& event) {
    const auto* detail = event.detail.objectValue();
    return detail && detail->integer("user_quiet_applied_minutes") == 60 &&
           detail->integer("quiet_until_ts_ms") == event.tsMs + 3'600'000;
  });
  const auto over = household_->eventTime(std::string(EventType::userQuietCancelled));
  const auto spoke = requested ? household_->eventTime("coach_checkin", [&](const EventLogEvent& event) {
    return event.tsMs > *requested && over && event.tsMs < *over;
  }) : std::nullopt;
  const auto recalled = household_->eventTime("app_chat_message", [](const EventLogEvent& event) {
    const auto* text = event.text("text");
    return text && *text == std::string("You told me: ") + lesson + ".";
  });
  const auto url = CoachCorrectionsLog::defaultURL(dataRoot());
  std::error_code none;
  const auto kept = std::filesystem::exists(url, none) ? CoachCorrectionsLog::readAll(url) : std::vector<CoachCorrection>();
  return {
      {"an hour of quiet, asked for in words and opened by the tool", requested.has_value()},
      {"drift during it", requested && driftedSince(*household_, *requested)},
      {"no check-in and no look of the gate during it",
       requested && over && !spoke && gateDecisions(dataRoot(), *requested, *over) == 0},
      {"the gate looks again once it is taken back", over && gateDecisions(dataRoot(), *over + 1, Clock::system().nowMs()) > 0},
      {"the correction in its file", kept.size() == 1 && kept[0].text == lesson && kept[0].isStanding()},
      {"the correction in the next prompt", recalled.has_value()},
  };
}

}  // namespace halvo
