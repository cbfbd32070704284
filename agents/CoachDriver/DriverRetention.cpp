#include "agents/CoachDriver/DriverRetention.h"

#include <array>
#include <string_view>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo::DriverRetention {

namespace {

bool staysForGood(std::string_view type) {
  using namespace EventType;
  static constexpr std::array lasting{taskDeclared,       taskCleared,         coachCheckin,        uiOpened,
                                      uiClosed,           userQuietRequested,  userQuietCancelled,  inCallBegan,
                                      inCallEnded,        onboardingStarted,   onboardingReset,     onboardingSetupFinished,
                                      correctionRecorded, coachServiceProblem, coachServiceRestored};
  for (const auto lastingType : lasting)
    if (type == lastingType) return true;
  return false;
}

}  // namespace

RetainedDriverLog::Keep keep(std::int64_t nowMs) {
  const auto wholeSinceMs = nowMs - wholeMs;
  return {.event =
              [=](EventLogEvent& event) {
                if (auto* detail = event.detail.mutableObject()) detail->erase("_producer");
                if (event.tsMs >= wholeSinceMs || staysForGood(event.type)) return true;
                if (event.type != EventType::chatMessage) return false;
                const auto* role = event.detail.find("role");
                event.detail = JSONObject{{"role", role ? *role : JSONValue()}};
                return true;
              },
          .tick =
              [=](ClassifierTick& tick) {
                // Not through the memo of times: it would remember a year of texts that nobody asks for again.
                const auto ms = ISO8601::parse(tick.at);
                return ms && *ms >= wholeSinceMs;
              }};
}

}  // namespace halvo::DriverRetention
