#include <algorithm>
#include <array>
#include <set>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "tools/PracticeModel/PracticeReplies.h"

namespace halvo::PracticeReplies {
namespace {

constexpr double awaySec = 240;
constexpr double trivialOverrunMinutes = 2;

/// Names that mean leisure wherever they stand, also inside a longer word ("videotube").
constexpr std::array leisureNames{"video", "youtube", "netflix", "twitch", "reddit", "tiktok", "instagram", "facebook", "twitter", "steam"};
/// Words that mean leisure when they stand alone.
constexpr std::array leisureWords{"watch",  "watching", "stream", "game", "games", "gaming", "play",     "movie", "film",
                                  "series", "episode",  "music",  "meme", "memes", "shop",   "shopping", "chat"};
constexpr std::array restWords{"break", "rest",  "nap",      "relax", "lunch", "dinner", "walk", "pause", "coffee",
                               "sleep", "watch", "watching", "play",  "movie", "film",   "game", "games"};
constexpr std::array workNames{"editor",   "code",    "libreoffice", "writer", "word", "emacs", "vim",   "terminal", "xterm", "gedit",
                               "mousepad", "sublime", "jetbrains",   "latex",  "docs", "notes", "excel", "calc",     "pdf"};
/// Too common to show that two texts speak of one thing.
constexpr std::array commonWords{"about", "after", "again", "finish",   "from",     "have",    "into",     "just",   "make",
                                 "more",  "page",  "some",  "start",    "task",     "that",    "then",     "this",   "today",
                                 "until", "with",  "work",  "working",  "write",    "writing", "untitled", "window", "http",
                                 "https", "html",  "break", "declared", "estimate", "minutes", "hours",    "hour"};

template <std::size_t N>
bool contains(const std::array<const char*, N>& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

std::set<std::string> words(std::string_view text) {
  std::set<std::string> found;
  std::string word;
  const auto lowered = Text::lower(text) + " ";
  for (const char c : lowered) {
    // Bytes past ASCII are letters of some language; what splits words is ASCII punctuation and blanks.
    const bool letter = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80;
    if (letter)
      word += c;
    else if (!word.empty())
      found.insert(std::exchange(word, {}));
  }
  return found;
}

bool isLeisure(std::string_view text) {
  const auto lowered = Text::lower(text);
  if (std::any_of(leisureNames.begin(), leisureNames.end(), [&](const char* name) { return lowered.find(name) != std::string::npos; }))
    return true;
  const auto all = words(text);
  return std::any_of(all.begin(), all.end(), [](const std::string& word) { return contains(leisureWords, word); });
}

bool isWork(std::string_view text) {
  const auto lowered = Text::lower(text);
  return std::any_of(workNames.begin(), workNames.end(), [&](const char* name) { return lowered.find(name) != std::string::npos; });
}

bool isRest(std::string_view task) {
  const auto all = words(task);
  return std::any_of(all.begin(), all.end(), [](const std::string& word) { return contains(restWords, word); });
}

bool speakOfOneThing(std::string_view task, std::string_view place) {
  const auto ours = words(task), theirs = words(place);
  return std::any_of(ours.begin(), ours.end(),
                     [&](const std::string& word) { return word.size() >= 4 && !contains(commonWords, word) && theirs.contains(word); });
}

std::string_view between(std::string_view text, std::string_view begin, std::string_view end) {
  const auto from = text.find(begin);
  if (from == std::string_view::npos) return text.substr(text.size());
  const auto rest = text.substr(from + begin.size());
  return rest.substr(0, rest.find(end));
}

std::string verdict(std::string_view state, double confidence, const std::string& reason) {
  return fmt::format(R"({{"state": "{}", "confidence": {}, "reason": {}}})", state, confidence, JSONValue(reason).dump());
}

}  // namespace

std::string classify(std::string_view message) {
  const auto declared = Text::trim(between(message, "DECLARED INTENTION:\n", "\n\n"));
  if (declared.empty() || declared.starts_with('(')) return verdict("NO_TASK", 0.9, "you have not declared an intention");
  const auto line = between(declared, "Task: ", "\n");
  const std::string task = Text::capped(Text::newlinesToBlanks(line.empty() ? declared : line), 80);

  const auto activity = JSONValue::parse(between(message, "CURRENT ACTIVITY (right now):\n", "\n\n")).value_or(JSONObject{});
  const JSONObject none;
  const auto& facts = activity.objectValue() ? *activity.objectValue() : none;
  const auto app = facts.string("frontmost_app").value_or("nothing");
  // Titles and addresses say where someone is. The text on the screen only says what a page talks about, so it can speak for a task and
  // never against it.
  const auto place = fmt::format("{} {} {} {}", app, facts.string("frontmost_window_title").value_or(""),
                                 facts.string("browser_title").value_or(""), facts.string("browser_url").value_or(""));
  const auto content = between(message, "WINDOW_CONTENT:\n", "\n\nJudge it.");
  const auto over = facts.number("minutes_over_estimate").value_or(0);

  if (const auto idle = facts.number("seconds_since_last_input"); idle && *idle > awaySec && !isLeisure(place))
    return verdict("IDLE", 0.8, fmt::format("you have not touched the computer for {:.0f} minutes", *idle / 60));
  if (over > trivialOverrunMinutes && !facts.contains("gap_since_last_activity_min"))
    return verdict("NOT_ALIGNED", 0.85,
                   fmt::format("you are {:.0f} minutes past your own estimate for {}, with {} in front", over, task, app));
  if (isRest(task)) {
    if (isWork(place) && !isLeisure(place) && !speakOfOneThing(task, place))
      return verdict("NOT_ALIGNED", 0.7, fmt::format("you declared {}, but {} in front looks like work", task, app));
    return verdict("ON_TASK", 0.8, fmt::format("you are in {}, which fits {}", app, task));
  }
  if (speakOfOneThing(task, place)) return verdict("ON_TASK", 0.9, fmt::format("you are in {}, on what you declared: {}", app, task));
  if (isLeisure(place)) return verdict("NOT_ALIGNED", 0.85, fmt::format("you declared {}, but {} in front looks like leisure", task, app));
  if (isWork(place) || speakOfOneThing(task, content))
    return verdict("ON_TASK", 0.8, fmt::format("you are in {}, which fits {}", app, task));
  return verdict("ON_TASK", 0.5, fmt::format("you are in {}, and nothing there speaks against {}", app, task));
}

}  // namespace halvo::PracticeReplies
