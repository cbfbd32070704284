#include "AmbitudeCore/Gate/CoachGateMessage.h"

#include "AmbitudeCore/Gate/CoachGateQuestion.h"
#include "AmbitudeCore/Gate/CoachGateRules.h"

namespace halvo::CoachGateMessage {

std::string build(const Contents& contents) {
  const auto timeline = CoachGateTimeline::render(contents.scene);
  std::string message = CoachGateRules::prefix(contents.lowEffort);
  const auto addParagraph = [&message](const std::optional<std::string>& text) {
    if (text) message.append("\n\n").append(*text);
  };
  addParagraph(contents.userInstructions);
  addParagraph(contents.standingNotes);
  message += "\n\nTimeline:\n";
  message += timeline.empty() ? "(nothing has happened yet)" : timeline;
  message += "\nit is now " + contents.scene.calendar.hourMinute(contents.scene.nowMs) + ".";
  addParagraph(contents.medsContext);
  addParagraph(CoachGateQuestion::text());
  return message;
}

}  // namespace halvo::CoachGateMessage
