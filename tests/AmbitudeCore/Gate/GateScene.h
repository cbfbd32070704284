#pragma once

#include <string>
#include <utility>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// Rows of one afternoon, 4 March 2026 in New York.
namespace halvo::GateScene {

inline const Calendar calendar = Calendar::named("America/New_York");

inline std::int64_t at(int hour, int minute, int second = 0, int day = 4) {
  return calendar.instant(2026, 3, day, hour, minute) + second * 1000;
}

inline EventLogEvent event(std::int64_t ms, std::string type, JSONObject detail = {}) {
  return {.tsMs = ms, .type = std::move(type), .detail = std::move(detail)};
}
inline EventLogEvent said(std::int64_t ms, const char* role, std::string text) {
  return event(ms, "app_chat_message", {{"role", role}, {"text", std::move(text)}});
}
inline EventLogEvent checkin(std::int64_t ms) { return event(ms, "coach_checkin", {{"summary_for_coach", "s"}}); }
inline EventLogEvent userClose(std::int64_t ms) { return event(ms, "ui_closed", {{"dismissed_by", "user"}}); }

inline ClassifierTick tick(std::int64_t ms, std::string state, std::string app = "firefox", std::string reason = {}) {
  ClassifierTick made{.at = calendar.isoMillis(ms), .state = std::move(state), .frontmostApp = std::move(app)};
  if (!reason.empty()) made.reason = std::move(reason);
  return made;
}

}  // namespace halvo::GateScene
