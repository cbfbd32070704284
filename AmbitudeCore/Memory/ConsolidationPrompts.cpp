#include "AmbitudeCore/Memory/ConsolidationPrompts.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "AmbitudeCore/Gate/TimelineLines.h"
#include "AmbitudeCore/Memory/ConsolidationPromptText.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::ConsolidationPrompts {

namespace {

using TimelineLines::userWords;

/// What a list's item takes beside its text: "[1234] " and the newline.
constexpr std::size_t itemFrameBytes = 8;

std::string withPreface(std::string_view instruction) { return fmt::format("{}\n\n{}", ConsolidationPromptText::preface, instruction); }

/// The instruction behind its opening sentences.
std::string_view behindOpening(std::string_view instruction) {
  constexpr std::string_view lead = "with exactly these keys:";
  return instruction.substr(instruction.find(lead) + lead.size());
}

std::string instruction(const Regeneration& inputs) {
  using namespace ConsolidationPromptText;
  auto text = inputs.priorThreads ? std::string(sequentialOpening) + std::string(behindOpening(ConsolidationPromptText::regeneration))
                                  : std::string(ConsolidationPromptText::regeneration);
  if (inputs.corrections.empty()) return text;
  // The passage goes on from the instruction's last sentence, in front of the blank line that ends it.
  text.resize(text.size() - 2);
  return text + std::string(corrections) + "\n\n";
}

void appendSection(std::string& out, std::string_view heading, const std::vector<std::string>& lines) {
  if (!out.empty() && !out.ends_with("\n\n")) out += "\n\n";
  out += heading;
  for (const auto& line : lines) out += "\n" + line;
}

template <class T, class F>
std::vector<std::string> linesOf(const std::vector<T>& items, F&& line) {
  std::vector<std::string> lines;
  lines.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) lines.push_back(line(i, items[i]));
  return lines;
}

/// Leaves items out until the rest fits the share, and takes from the room what the rest needs. Answers how many went.
template <class T, class Words, class IsKnown>
std::size_t leaveOut(std::vector<T>& items, std::size_t share, std::size_t& room, Words&& words, IsKnown&& isKnown) {
  std::vector<bool> stays(items.size());
  std::size_t used = 0;
  const auto take = [&](bool wantsKnown, std::size_t limit) {
    for (std::size_t i = items.size(); i-- > 0;) {
      const auto& text = words(items[i]);
      if (stays[i] || isKnown(text) != wantsKnown) continue;
      if (used + text.size() + itemFrameBytes > limit) return;
      used += text.size() + itemFrameBytes;
      stays[i] = true;
    }
  };
  take(true, share * 2 / 3);
  take(false, share);
  take(true, share);
  std::vector<T> kept;
  for (std::size_t i = 0; i < items.size(); ++i)
    if (stays[i]) kept.push_back(std::move(items[i]));
  const auto left = items.size() - kept.size();
  items = std::move(kept);
  room -= used;
  return left;
}

}  // namespace

void Candidates::add(const std::vector<MemoryFact>& more) {
  std::unordered_map<std::string_view, std::size_t> known;
  facts.reserve(facts.size() + more.size());  // the views below must not move
  for (std::size_t i = 0; i < facts.size(); ++i) known.emplace(facts[i].text, i);
  for (const auto& fact : more) {
    const auto [at, isNew] = known.emplace(fact.text, facts.size());
    if (isNew) {
      facts.push_back(fact);
      continue;
    }
    auto& sources = facts[at->second].sourceEventTsMs;
    for (const auto ms : fact.sourceEventTsMs)
      if (std::ranges::find(sources, ms) == sources.end()) sources.push_back(ms);
    // Said once is said, however often it was concluded too.
    if (fact.provenance == MemoryFactProvenance::asserted) facts[at->second].provenance = fact.provenance;
  }
}

void Candidates::add(const std::vector<std::string>& more) {
  for (const auto& lesson : more)
    if (std::ranges::find(lessons, lesson) == lessons.end()) lessons.push_back(lesson);
}

std::string digest(std::string_view numberedLines) {
  return withPreface(ConsolidationPromptText::digest) + std::string(numberedLines) + std::string(ConsolidationPromptText::ending);
}

std::string regeneration(const Regeneration& inputs) {
  auto text = withPreface(instruction(inputs));
  if (inputs.priorThreads)
    appendSection(text, "Prior standing memory's threads (may be updated, kept, or dropped):",
                  linesOf(*inputs.priorThreads, [](std::size_t, const MemoryThread& thread) {
                    return fmt::format("- {} [{}]: {}", userWords(thread.name), rawValue(thread.status), userWords(thread.notes));
                  }));
  appendSection(text, inputs.priorThreads ? "New period summaries since the last fold, oldest first:" : "Period summaries, oldest first:",
                linesOf(inputs.summaries, [](std::size_t, const std::string& summary) { return "- " + userWords(summary); }));
  appendSection(text,
                inputs.priorThreads
                    ? "Candidate facts (index, text) -- combines prior standing memory's kept facts with facts from the new periods:"
                    : "Candidate facts (index, text):",
                linesOf(inputs.candidates.facts,
                        [](std::size_t i, const MemoryFact& fact) { return fmt::format("[{}] {}", i, userWords(fact.text)); }));
  appendSection(text, "Candidate lessons:", linesOf(inputs.candidates.lessons, [](std::size_t, const std::string& lesson) {
                  return "- " + userWords(lesson);
                }));
  if (!inputs.corrections.empty())
    appendSection(text, "The user's corrections:", linesOf(inputs.corrections, [](std::size_t, const CoachCorrection& correction) {
                    return "- " + userWords(correction.text);
                  }));
  return text + std::string(ConsolidationPromptText::ending);
}

Fitted fitted(Regeneration inputs, const Known& known, std::size_t budgetBytes) {
  Fitted result{.inputs = std::move(inputs)};
  auto room = budgetBytes;
  auto& candidates = result.inputs.candidates;
  const auto same = [](const std::string& text) -> const std::string& { return text; };
  result.leftOutLessons =
      leaveOut(candidates.lessons, room / 3, room, same, [&](const std::string& text) { return known.lessons.contains(text); });
  result.leftOutFacts = leaveOut(
      candidates.facts, room / 2, room, [](const MemoryFact& fact) -> const std::string& { return fact.text; },
      [&](const std::string& text) { return known.facts.contains(text); });
  result.leftOutSummaries = leaveOut(result.inputs.summaries, room, room, same, [](const std::string&) { return false; });
  return result;
}

}  // namespace halvo::ConsolidationPrompts
