#include "tools/PracticeModel/PracticeDurations.h"

#include <array>
#include <cstdlib>
#include <utility>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::PracticeDurations {
namespace {

constexpr std::string_view leadIn =
    R"((?:\b(?:for|in|takes?|give me|it'?ll be)\s+)?(?:\b(?:like|about|around|another|the next|maybe)\s+)*)";

constexpr std::array numbers{std::pair{"one", 1},     std::pair{"two", 2},    std::pair{"three", 3},       std::pair{"four", 4},
                             std::pair{"five", 5},    std::pair{"six", 6},    std::pair{"seven", 7},       std::pair{"eight", 8},
                             std::pair{"nine", 9},    std::pair{"ten", 10},   std::pair{"fifteen", 15},    std::pair{"twenty", 20},
                             std::pair{"thirty", 30}, std::pair{"forty", 40}, std::pair{"forty-five", 45}, std::pair{"ninety", 90}};

double number(std::string_view text) {
  for (const auto& [word, value] : numbers)
    if (Text::equalsIgnoringCase(text, word)) return value;
  return std::strtod(std::string(text).c_str(), nullptr);
}

bool isHours(std::string_view unit) { return unit.starts_with('h') || unit.starts_with('H'); }

std::string wordPattern() {
  // "forty-five" before "forty": the longer word first.
  std::string pattern = "forty-five";
  for (const auto& [word, value] : numbers)
    if (std::string_view(word) != "forty-five") pattern += std::string("|") + word;
  return pattern;
}

struct Phrase {
  Regex pattern;
  double minutes;
};

const std::vector<Phrase>& phrases() {
  static const auto all = [] {
    std::vector<Phrase> list;
    const auto add = [&](const char* words, double minutes) {
      list.push_back({Regex(std::string(leadIn) + words, Regex::Flag::caseless), minutes});
    };
    add(R"(\ban hour and a half\b)", 90);
    add(R"(\bhalf an hour\b)", 30);
    add(R"(\ba couple (?:of )?hours\b)", 120);
    add(R"(\ba couple (?:of )?min(?:ute)?s\b)", 5);
    add(R"(\ba few min(?:ute)?s\b)", 5);
    add(R"(\ban hour\b)", 60);
    add(R"(\ba quarter (?:of an )?hour\b)", 15);
    list.push_back({Regex(R"(\bfor a (?:little )?(?:bit|while)\b)", Regex::Flag::caseless), 15});
    return list;
  }();
  return all;
}

int twentyFourHour(int hour, std::string_view half) {
  const bool afternoon = half.starts_with('p') || half.starts_with('P');
  return hour % 12 + (afternoon ? 12 : 0);
}

int integer(std::string_view text) { return static_cast<int>(std::strtol(std::string(text).c_str(), nullptr, 10)); }

}  // namespace

std::optional<Found> duration(std::string_view text) {
  static const Regex counted(std::string(leadIn) + R"(\b(\d{1,4}(?:\.\d+)?|)" + wordPattern() +
                                 R"()[\s-]*(minutes?|mins?|m|hours?|hrs?|h)\b(?:\s*(?:and\s+)?(\d{1,2})\s*(?:minutes?|mins?|m)\b)?)",
                             Regex::Flag::caseless);
  std::optional<std::pair<Regex::Span, double>> first;
  const auto offer = [&](Regex::Span span, double minutes) {
    // Of two at one place the longer is meant: "an hour and a half" is more than "an hour".
    if (!first || span.begin < first->first.begin || (span.begin == first->first.begin && span.size() > first->first.size()))
      first = {span, minutes};
  };
  if (const auto found = counted.find(text)) {
    const bool hours = isHours(*found->text(text, 2));
    auto minutes = number(*found->text(text, 1)) * (hours ? 60 : 1);
    if (const auto rest = found->text(text, 3); rest && hours) minutes += number(*rest);
    offer(found->whole(), minutes);
  }
  for (const auto& phrase : phrases())
    if (const auto found = phrase.pattern.find(text)) offer(found->whole(), phrase.minutes);
  if (!first || first->second <= 0) return std::nullopt;
  return Found{.minutes = first->second, .phrase = std::string(text.substr(first->first.begin, first->first.size()))};
}

std::optional<Found> until(std::string_view text, int fromMinuteOfDay) {
  static const Regex clock(R"(\b(?:until|till?)\s+(?:\w+\s+){0,6}?(?:at\s+)?(\d{1,2})(?::(\d{2}))?\s*([ap])?\.?(?:m\b)?)",
                           Regex::Flag::caseless);
  const auto found = clock.find(text);
  if (!found) return std::nullopt;
  const int hour = integer(*found->text(text, 1));
  const int minute = integer(found->text(text, 2).value_or("0"));
  if (hour > 23 || minute > 59) return std::nullopt;
  const auto half = found->text(text, 3);
  int at = (half && hour <= 12 ? twentyFourHour(hour, *half) : hour) * 60 + minute;
  if (!half && hour <= 12) {
    at = hour % 12 * 60 + minute;
    while (at < fromMinuteOfDay) at += 12 * 60;
  }
  const auto span = found->whole();
  return Found{.minutes = static_cast<double>(at - fromMinuteOfDay), .phrase = std::string(text.substr(span.begin, span.size()))};
}

std::optional<int> minuteOfDay(std::string_view text) {
  static const Regex clock(R"(\b(\d{1,2}):(\d{2})\s*([ap])m\b)", Regex::Flag::caseless);
  const auto found = clock.find(text);
  if (!found) return std::nullopt;
  return twentyFourHour(integer(*found->text(text, 1)), *found->text(text, 3)) * 60 + integer(*found->text(text, 2));
}

}  // namespace halvo::PracticeDurations
