#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "tools/PracticeModel/PracticeDurations.h"
#include "tools/PracticeModel/PracticeReplies.h"

namespace halvo::PracticeReplies {
namespace {

constexpr double longestHorizonMinutes = 10080;  // a week: a longer one would not be recorded

/// What the timeline's last observation line says.
struct Observation {
  std::string state = {};
  std::string since = {};    // "H:mm"
  std::string minutes = {};  // empty for a run that has just begun
  std::string app = {};
};

std::optional<Observation> observation(const std::vector<std::string_view>& lines) {
  static const Regex pattern(
      R"(^the classifier's latest observation is from (\d{1,2}:\d{2}): ([A-Z_]+))"
      R"((?:, unchanged since (\d{1,2}:\d{2}) \((\d+) minutes?\))?(?:, (.+?) frontmost)?)");
  for (auto line = lines.rbegin(); line != lines.rend(); ++line)
    if (const auto found = pattern.find(*line)) {
      const auto group = [&](std::size_t index) { return std::string(found->text(*line, index).value_or("")); };
      return Observation{.state = group(2), .since = group(3).empty() ? group(1) : group(3), .minutes = group(4), .app = group(5)};
    }
  return std::nullopt;
}

/// A check-in stands in the timeline behind the line that began the present run.
bool alreadyRaised(const std::vector<std::string_view>& lines, std::string_view state) {
  const std::string began = fmt::format("the classifier moved to {}", state);
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    if (line->starts_with("the coach checked in at ")) return true;
    if (line->starts_with("at ") && line->find(began) != std::string_view::npos) return false;
  }
  return false;
}

/// "declared task is X, set at H:mm", from the last declaration line.
std::string declaredTask(const std::vector<std::string_view>& lines) {
  static const Regex pattern(R"x(^(?:at )?(.{1,20}?) they declared: "(.*)", )x");
  for (auto line = lines.rbegin(); line != lines.rend(); ++line)
    if (const auto found = pattern.find(*line))
      return fmt::format("declared task is {}, set at {}", *found->text(*line, 2), *found->text(*line, 1));
  return "no declared task is in the timeline";
}

std::string answer(const std::string& summary, bool checkIn) {
  // The summary first: its reader looks at the order.
  return fmt::format(R"({{"summary_for_coach": {}, "should_check_in": {}}})", JSONValue(summary).dump(), checkIn);
}

/// What the person wrote, or what the system reports, whichever ends the message: several messages may have been merged into one.
struct Ending {
  std::string text = {};
  bool isNotice = false;
};

Ending ending(std::string_view message) {
  static const Regex start(R"((?:^|\n\n)(?:\[\d{1,2}:\d{2}\] |(It's \d{1,2}:\d{2}\. The system's summary of what it observed: )))");
  Ending last{.text = std::string(message)};
  std::size_t from = 0;
  while (const auto found = start.find(message, from)) {
    last = {.text = std::string(message.substr(found->whole().end)), .isNotice = found->groups[1].has_value()};
    from = found->whole().end;
  }
  return last;
}

Reply aboutNotice(std::string_view summary) {
  static const Regex facts(R"(they have been in (.+?) (?:for \d+ minutes?|since \d{1,2}:\d{2}); declared task is (.+), set at )");
  const auto found = facts.find(summary);
  if (!found) return {.text = "What is on the screen and what you declared seem to differ. Is the intention still right?"};
  return {.text = fmt::format("You said {}, and {} has been in front. Is that still what you mean to be doing?", *found->text(summary, 2),
                              *found->text(summary, 1))};
}

/// The activity in a message: without how it begins ("ok im switching to") and without its stretch of time.
std::string activity(std::string_view text, std::string_view timePhrase) {
  static const Regex leadIn(
      R"(^(?:(?:ok(?:ay)?|brb|yeah|yes|no|well|so|sorry|hmm|right|actually)\b[,. ]*)*)"
      R"((?:(?:i'?m|i am|i'?ll|i will|let me|gonna|going to|i want to|i need to|switching to|about to|just|now|do|taking|take)\s+)*)",
      Regex::Flag::caseless);
  std::string rest(text);
  if (const auto at = rest.find(timePhrase); !timePhrase.empty() && at != std::string::npos) rest.replace(at, timePhrase.size(), " ");
  if (const auto found = leadIn.find(rest)) rest.erase(0, found->whole().end);
  rest = Text::newlinesToBlanks(rest);
  std::string tidy;
  for (const auto word : Text::split(rest, ' '))
    if (!word.empty()) tidy += (tidy.empty() ? "" : " ") + std::string(word);
  while (!tidy.empty() && std::string_view(" .,!;:-").find(tidy.back()) != std::string_view::npos) tidy.pop_back();
  return tidy;
}

/// What stands in the prompt as the person's own words about the coach.
std::string taught(std::string_view system) {
  constexpr std::string_view mark = " (they told you this directly)";
  std::string told;
  for (const auto line : Text::split(system, '\n'))
    if (line.starts_with("- ") && line.ends_with(mark))
      told += (told.empty() ? "You told me: " : "; ") + std::string(line.substr(2, line.size() - 2 - mark.size()));
  return told.empty() ? "You have told me nothing about how to behave." : told + ".";
}

Reply aboutMessage(const Request& request, const std::string& text) {
  static const Regex quiet(R"(\b(?:quiet|leave me alone|stop (?:interrupting|bothering|asking)|don'?t (?:interrupt|bother))\b)",
                           Regex::Flag::caseless);
  static const Regex intends(R"(\b(?:i'?m going to|i am going to|gonna|switching to|i'?ll|i will|let me)\b)", Regex::Flag::caseless);
  static const Regex thanks(R"(^(?:ok(?:ay)?|thanks?|thank you|got it|yep|yes|sure|fine|great)\b[\s\w,.!]{0,12}$)", Regex::Flag::caseless);
  const auto length = PracticeDurations::duration(text);
  const std::int64_t minutes = length ? std::llround(std::min(length->minutes, longestHorizonMinutes)) : 0;

  if (quiet.matches(text) && length && request.offers("go_quiet")) {
    const auto words = fmt::format("Okay, quiet for {} minutes.", minutes);
    return {.text = words, .toolCalls = {{.name = "go_quiet", .arguments = JSONObject{{"minutes", minutes}, {"message", words}}}}};
  }
  static const Regex correction(R"(^(?:please )?(?:don'?t|stop|never|always)\b)", Regex::Flag::caseless);
  if (correction.matches(text) && request.offers("remember_correction"))
    return {.text = "I will keep to that.",
            .toolCalls = {{.name = "remember_correction", .arguments = JSONObject{{"correction", text}, {"lasts", "until_changed"}}}}};
  static const Regex asksBack(R"(\bwhat (?:have|did) i (?:told|tell|taught|teach) you\b)", Regex::Flag::caseless);
  if (asksBack.matches(text)) return {.text = taught(request.system)};
  if (thanks.matches(text)) return {.text = "All right."};
  const auto notes = activity(text, length ? length->phrase : std::string());
  const bool canWrite = request.offers("write_current_intention") && !notes.empty();
  if (canWrite && length)
    return {.text = fmt::format("I wrote down: {}, for {} minutes. Tell me if that is not it.", notes, minutes),
            .toolCalls = {{.name = "write_current_intention", .arguments = JSONObject{{"notes", notes}, {"horizon_minutes", minutes}}}}};
  if (canWrite && intends.matches(text))
    return {.text = fmt::format("I wrote down: {}. How long do you want for it?", notes),
            .toolCalls = {{.name = "write_current_intention", .arguments = JSONObject{{"notes", notes}}}}};
  if (length) return {.text = fmt::format("What will you be doing for those {} minutes?", minutes)};
  return {.text = "I hear you. Is what you declared still what you mean to be doing?"};
}

}  // namespace

std::string gate(std::string_view message) {
  constexpr std::string_view begin = "\n\nTimeline:\n", end = "\nit is now ";
  const auto from = message.rfind(begin);
  auto timeline = from == std::string_view::npos ? std::string_view() : message.substr(from + begin.size());
  timeline = timeline.substr(0, timeline.rfind(end));
  const auto lines = Text::split(timeline, '\n');

  const auto seen = observation(lines);
  if (!seen) return answer("nothing has been observed that could be raised with them", false);
  const auto where = seen->app.empty() ? std::string("an unnamed window") : seen->app;
  const auto stretch =
      seen->minutes.empty() ? "since " + seen->since : fmt::format("for {} minute{}", seen->minutes, seen->minutes == "1" ? "" : "s");
  const auto summary = fmt::format("they have been in {} {}; {}; the classifier's latest observation is {}", where, stretch,
                                   declaredTask(lines), seen->state);
  return answer(summary, seen->state == "NOT_ALIGNED" && !alreadyRaised(lines, seen->state));
}

Reply coach(const Request& request) {
  if (request.lastRole == "tool") return {.text = "That is done."};
  const auto last = ending(request.last);
  return last.isNotice ? aboutNotice(last.text) : aboutMessage(request, last.text);
}

}  // namespace halvo::PracticeReplies
