#include "AmbitudeCore/Gate/GateStandingNotes.h"

#include <algorithm>
#include <vector>

#include "AmbitudeCore/Gate/TimelineLines.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::GateStandingNotes {

std::optional<std::string> render(const std::optional<StandingMemory>& memory, std::span<const CoachCorrection> corrections,
                                  CoachCorrection::Scope scope) {
  std::vector<std::string> lines;
  const auto add = [&](const std::string& text, std::string_view behind) {
    if (!Text::isBlank(text)) lines.push_back("- " + TimelineLines::userWords(Text::trim(text)) + std::string(behind));
  };
  if (memory) {
    for (const auto& fact : memory->facts) add(fact.text, "");
    for (const auto& lesson : memory->lessons) add(lesson, "");
  }
  std::vector<const CoachCorrection*> pending;
  for (const auto& correction : corrections)
    if (correction.isPending() && correction.appliesTo(scope)) pending.push_back(&correction);
  std::ranges::stable_sort(pending, {}, &CoachCorrection::atMs);
  for (const auto* correction : pending) add(correction->text, " (they told you this directly)");
  if (lines.empty()) return std::nullopt;
  return "What you have been told before, and still applies:\n" + Text::join(lines, "\n");
}

}  // namespace halvo::GateStandingNotes
