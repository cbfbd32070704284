#include "AmbitudeCore/Memory/MemoryConsolidation.h"

#include <fmt/format.h>

#include <algorithm>

#include "AmbitudeCore/Memory/ConsolidationParsing.h"
#include "AmbitudeCore/Memory/ConsolidationPrompts.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::MemoryConsolidation {

namespace {

using ConsolidationPrompts::Candidates;

constexpr const char* digestFailedSummary = "(digest failed: model response was truncated or unparseable)";

ChatResponse ask(const std::string& prompt, const Work& work) {
  return work.backend->chat({ChatMessage::user(prompt)}, {}, work.options, work.stop);
}

std::string servedBy(const ChatResponse& response) { return response.servedBy.value_or("unknown"); }

void logDigestFailure(const Period& period, const ChatResponse& response, bool parseFailed, std::size_t renderedChars, const Work& work) {
  work.log(
      fmt::format("digest FAILED for {} -- truncated={}, parseFailed={}, servedBy={}, maxTokens={}, renderedChars={}, responseChars={}. "
                  "This period is now permanently empty in memory; digests are never retried.",
                  ISO8601::utcSeconds(period.startMs), response.truncated, parseFailed, servedBy(response), work.options.maxTokens,
                  renderedChars, Text::count(response.text)));
  for (const auto& line : ConsolidationParsing::excerptLines(response.text)) work.log(line);
}

void logRegenerationFailure(const ChatResponse& response, const Candidates& candidates, const Work& work) {
  work.log(fmt::format(
      "regeneration JSON did not parse -- truncated={}, servedBy={}, maxTokens={}, responseChars={}, candidates={} fact(s)/{} lesson(s)",
      response.truncated, servedBy(response), work.options.maxTokens, Text::count(response.text), candidates.facts.size(),
      candidates.lessons.size()));
  for (const auto& line : ConsolidationParsing::excerptLines(response.text)) work.log(line);
  work.log(
      "WARNING: regeneration response did not parse -- SALVAGED every candidate unorganized. Standing memory is degraded (no threads, "
      "nothing pruned) until a regeneration succeeds. Re-run consolidation; if it keeps failing, the model's JSON is the bug.");
}

/// The facts and lessons of a list of digests behind those that are there already.
void addCandidates(Candidates& candidates, std::span<const PeriodDigest> digests) {
  std::vector<MemoryFact> facts;
  std::vector<std::string> lessons;
  for (const auto& digest : digests) {
    facts.insert(facts.end(), digest.facts.begin(), digest.facts.end());
    lessons.insert(lessons.end(), digest.lessons.begin(), digest.lessons.end());
  }
  candidates.add(facts);
  candidates.add(lessons);
}

ConsolidationPrompts::Known knownOf(const std::optional<StandingMemory>& memory) {
  ConsolidationPrompts::Known known;
  if (!memory) return known;
  for (const auto& fact : memory->facts) known.facts.insert(fact.text);
  known.lessons.insert(memory->lessons.begin(), memory->lessons.end());
  return known;
}

StandingMemory regenerate(ConsolidationPrompts::Regeneration inputs, const Sources& sources, std::size_t digestCount, const Work& work) {
  for (const auto& digest : sources.digests)
    if (!digest.salvaged) inputs.summaries.push_back(digest.summary);
  const auto all = inputs.candidates;
  const auto fit = ConsolidationPrompts::fitted(std::move(inputs), knownOf(sources.present));
  if (fit.leftOutSummaries + fit.leftOutFacts + fit.leftOutLessons > 0)
    work.log(fmt::format("the prompt has no room for everything: {} older summary(s), {} fact(s) and {} lesson(s) stay out of it",
                         fit.leftOutSummaries, fit.leftOutFacts, fit.leftOutLessons));
  const auto response = ask(ConsolidationPrompts::regeneration(fit.inputs), work);
  const auto& shown = fit.inputs.candidates;
  StandingMemory memory{
      .regeneratedAtTsMs = sources.regeneratedAtMs, .digestCount = static_cast<std::int64_t>(digestCount), .seed = work.options.seed};
  auto parsed = ConsolidationParsing::regeneration(response.text, shown.facts.size());
  if (!parsed) {
    logRegenerationFailure(response, all, work);
    memory.salvaged = true;
    memory.salvageDetail = ConsolidationParsing::salvageDetail(response);
    memory.facts = all.facts;
    memory.lessons = all.lessons;
    return memory;
  }
  memory.threads = std::move(parsed->threads);
  memory.lessons = std::move(parsed->lessons);
  for (const auto index : parsed->keepFactIndices) memory.facts.push_back(shown.facts[index]);
  return memory;
}

}  // namespace

std::vector<Period> pendingPeriods(const Due& due) {
  const auto stepMs = due.stepIntervalSec * 1000;
  const auto boundary = [&](std::int64_t ms) { return ms - ((ms % stepMs) + stepMs) % stepMs; };
  const auto& first = due.lastDigestedPeriodEndMs ? due.lastDigestedPeriodEndMs : due.earliestEventMs;
  std::vector<Period> periods;
  if (!first) return periods;
  const auto last = boundary(due.asOfMs);
  for (auto start = boundary(std::max(*first, earliestSensibleMs)); start < last; start += stepMs)
    periods.push_back({start, start + stepMs});
  return periods;
}

PeriodDigest digestPeriod(std::span<const EventLogEvent> events, const Period& period, std::int64_t generatedAtMs, const Work& work) {
  const auto rendered = PeriodRendering::render(events, period, work.calendar);
  if (rendered.leftOut > 0) work.log(fmt::format("  no room for the period's first {} line(s)", rendered.leftOut));
  const auto response = ask(ConsolidationPrompts::digest(rendered.text), work);
  auto parsed = ConsolidationParsing::digest(response.text, rendered.lineTsMs);
  PeriodDigest digest{.periodStartTsMs = period.startMs, .periodEndTsMs = period.endMs, .generatedAtTsMs = generatedAtMs};
  if (response.truncated || !parsed) {
    logDigestFailure(period, response, !parsed, Text::count(rendered.text), work);
    digest.summary = digestFailedSummary;
    digest.salvaged = true;
    return digest;
  }
  digest.summary = std::move(parsed->summary);
  digest.facts = std::move(parsed->facts);
  digest.lessons = std::move(parsed->lessons);
  return digest;
}

StandingMemory regenerateStanding(const Sources& sources, const Work& work) {
  ConsolidationPrompts::Regeneration inputs{.corrections = sources.corrections};
  addCandidates(inputs.candidates, sources.digests);
  return regenerate(std::move(inputs), sources, sources.digests.size(), work);
}

StandingMemory regenerateStandingSequential(const std::optional<SequentialMemoryState>& previous, const Sources& sources,
                                            const Work& work) {
  ConsolidationPrompts::Regeneration inputs{.priorThreads = std::vector<MemoryThread>{}, .corrections = sources.corrections};
  auto folded = sources.digests.size();
  auto known = sources;
  if (previous) {
    inputs.priorThreads = previous->standingMemory.threads;
    inputs.candidates.add(previous->standingMemory.facts);
    inputs.candidates.add(previous->standingMemory.lessons);
    folded += previous->foldedPeriodStartsTsMs.size();
    known.present = previous->standingMemory;
  }
  addCandidates(inputs.candidates, sources.digests);
  return regenerate(std::move(inputs), known, folded, work);
}

std::optional<std::string> degenerateStanding(std::span<const PeriodDigest> digests, const StandingMemory& standing) {
  const auto facts = standing.facts.size(), lessons = standing.lessons.size();
  if (standing.salvaged)
    return fmt::format(
        "the model's reply could not be used, so standing memory was left unorganized -- {} fact(s) and {} lesson(s) kept unpruned, no "
        "threads",
        facts, lessons);
  Candidates candidates;
  addCandidates(candidates, digests);
  const auto count = candidates.facts.size() + candidates.lessons.size();
  if (!standing.threads.empty() || count == 0) return std::nullopt;
  return fmt::format(
      "0 threads, {} fact(s)/{} lesson(s) kept out of {} candidates -- nothing was pruned or organized despite real digest content", facts,
      lessons, count);
}

}  // namespace halvo::MemoryConsolidation
