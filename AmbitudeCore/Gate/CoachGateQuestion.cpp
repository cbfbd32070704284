#include "AmbitudeCore/Gate/CoachGateQuestion.h"

namespace halvo::CoachGateQuestion {
namespace {
constexpr std::string_view opening =
    "Given everything above, respond with exactly one JSON object and nothing else -- no prose before or after it, no code fence -- "
    "containing these two keys, in this order:\n\n"
    "\"summary_for_coach\" (string): ";
constexpr std::string_view between = "\n\n\"should_check_in\" (boolean): ";
}  // namespace

const std::string_view summaryDescription =
    "A grounded, present-tense snapshot of what is happening RIGHT NOW, with duration. Cite concrete facts from the timeline above: "
    "app/window names, elapsed time since the last state change, the declared task and when it was set. Never characterize them "
    "('distracted', 'off task') -- state only what is directly observable. Describe the situation; never tell the coach what to say or "
    "do, because it can see the conversation and you cannot. Write about them in the third person ('they'/'their') -- never address "
    "them directly ('you'/'your'). This text is read by the coach, not by them, and 'you' would be ambiguous about who it means. Write "
    "this before deciding whether to check in, and let it inform that decision.";

const std::string_view summaryExample =
    "For example: 'they have been in YouTube for 15 minutes, watching Roman Empire videos; declared task is still chess, set at 3:45'.";

const std::string_view shouldCheckInDescription =
    "Whether the coach should check in with them right now. Consider the summary above and the timeline: has this already been raised "
    "and answered? Is a check-in already pending an unanswered reply? Would checking in now repeat something already said with nothing "
    "new to add? Say no more often than yes -- an unnecessary check-in costs their trust; a missed one costs nothing until it recurs.";

const std::string& text() {
  static const std::string whole = std::string(opening).append(summaryDescription).append(between).append(shouldCheckInDescription);
  return whole;
}

}  // namespace halvo::CoachGateQuestion
