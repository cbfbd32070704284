#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/MemoryFact.h"
#include "CaptureShared/Records/MemoryThread.h"
#include "CaptureShared/Records/PeriodDigest.h"

/// The nightly prompts, each one user message. Pure. What people and programs wrote stands on one line each and can't end a turn.
namespace halvo::ConsolidationPrompts {

/// Bytes that the lists of a regeneration may take. Half of the smallest context that the server is started with (16,384 tokens) is the
/// reply's; 8,192 tokens of three bytes less the instruction's 6,000 bytes are left for them.
inline constexpr std::size_t listBudgetBytes = 18'000;

std::string digest(std::string_view numberedLines);

/// The candidates as they are numbered: no text twice, oldest first.
struct Candidates {
  std::vector<MemoryFact> facts = {};
  std::vector<std::string> lessons = {};

  /// Of equal texts the first stays, and takes in the sources of the others.
  void add(const std::vector<MemoryFact>& more);
  void add(const std::vector<std::string>& more);
  bool operator==(const Candidates&) const = default;
};

struct Regeneration {
  std::optional<std::vector<MemoryThread>> priorThreads = {};  ///< present: the sequential prompt
  std::vector<std::string> summaries = {};                     ///< oldest first
  Candidates candidates = {};
  std::vector<CoachCorrection> corrections = {};
};
std::string regeneration(const Regeneration& inputs);

/// What the present memory keeps, by exact text: worth more room than a candidate that nobody has judged yet.
struct Known {
  std::unordered_set<std::string> facts = {}, lessons = {};
};
struct Fitted {
  Regeneration inputs = {};
  std::size_t leftOutSummaries = 0, leftOutFacts = 0, leftOutLessons = 0;
};
/// The inputs with the oldest items of each list left out until the lists fit, the known ones last. Lessons may fill a third of the room,
/// facts half of the rest, summaries what is left then; known items at most two thirds of their list's share, so that news always gets in.
/// Corrections and prior threads stay.
Fitted fitted(Regeneration inputs, const Known& known, std::size_t budgetBytes = listBudgetBytes);

}  // namespace halvo::ConsolidationPrompts
