// The practice model's rules for the nightly prompts: it takes over what stands in the lines and concludes nothing.

#include <fmt/format.h>

#include <iterator>
#include <optional>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "tools/PracticeModel/PracticeReplies.h"

namespace halvo::PracticeReplies {
namespace {

constexpr std::ptrdiff_t maxThreads = 12;

/// A line "12. [11-25 07:06] words" of a period.
struct Line {
  std::int64_t number = 0;
  std::string_view words = {};
};
std::optional<Line> numbered(std::string_view text) {
  const auto dot = text.find(". ["), bracket = text.find("] ");
  if (dot == std::string_view::npos || bracket == std::string_view::npos || bracket < dot) return std::nullopt;
  const auto number = Text::parseInteger(text.substr(0, dot));
  if (!number) return std::nullopt;
  return Line{*number, text.substr(bracket + 2)};
}

/// What follows a beginning, when the text has it.
std::optional<std::string_view> behind(std::string_view text, std::string_view beginning) {
  if (!text.starts_with(beginning)) return std::nullopt;
  return text.substr(beginning.size());
}

JSONValue fact(const std::string& text, std::int64_t line) {
  return JSONObject{{"text", text}, {"provenance", "asserted"}, {"source_lines", JSONValue::Array{line}}};
}

}  // namespace

std::string digest(std::string_view message) {
  JSONValue::Array facts, lessons;
  std::size_t lines = 0;
  bool coachSpoke = false, userSpoke = false;
  for (const auto text : Text::split(message, '\n')) {
    const auto line = numbered(text);
    if (!line) continue;
    ++lines;
    coachSpoke |= line->words.starts_with("coach: ");
    userSpoke |= line->words.starts_with("you: ");
    if (const auto task = behind(line->words, "declared: ")) facts.push_back(fact("working on " + std::string(*task), line->number));
    if (const auto asserted = behind(line->words, "fact asserted: ")) facts.push_back(fact(std::string(*asserted), line->number));
  }
  if (coachSpoke && userSpoke) lessons.push_back("they answer when the coach speaks up");
  const auto summary = lines == 0 ? std::string("Nothing was logged.") : fmt::format("{} line(s) were logged.", lines);
  return JSONValue(JSONObject{{"summary", summary}, {"facts", std::move(facts)}, {"lessons", std::move(lessons)}}).dump();
}

std::string regeneration(std::string_view message) {
  JSONValue::Array threads, keep, lessons;
  bool inFacts = false, inLessons = false;
  for (const auto line : Text::split(message, '\n')) {
    if (line.empty()) inFacts = inLessons = false;
    if (line.starts_with("Candidate facts (index, text)")) inFacts = true;
    if (line.starts_with("Candidate lessons:")) inLessons = true;
    const auto close = inFacts && line.starts_with('[') ? line.find("] ") : std::string_view::npos;
    if (close != std::string_view::npos)
      if (const auto index = Text::parseInteger(line.substr(1, close - 1))) {
        keep.push_back(*index);
        if (const auto name = behind(line.substr(close + 2), "working on "))
          threads.push_back(JSONObject{{"name", *name}, {"status", "active"}, {"notes", "declared"}});
      }
    if (const auto lesson = behind(line, "- "); lesson && inLessons) lessons.push_back(*lesson);
  }
  // The newest are what is going on; more than a reply can hold would be cut off.
  if (std::ssize(threads) > maxThreads) threads.erase(threads.begin(), threads.end() - maxThreads);
  return JSONValue(JSONObject{{"threads", std::move(threads)}, {"keep_fact_indices", std::move(keep)}, {"lessons", std::move(lessons)}})
      .dump();
}

}  // namespace halvo::PracticeReplies
