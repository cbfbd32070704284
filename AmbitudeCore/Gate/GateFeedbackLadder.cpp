#include "AmbitudeCore/Gate/GateFeedbackLadder.h"

namespace halvo::GateFeedbackLadder {
namespace {
struct Meaning {
  bool actual, required;
};
Meaning meaning(GateLabel label) {
  switch (label) {
    case GateLabel::shouldHaveSpoken: return {.actual = false, .required = true};
    case GateLabel::rightToStayQuiet: return {.actual = false, .required = false};
    case GateLabel::shouldNotHaveSpoken: return {.actual = true, .required = false};
    case GateLabel::rightToSpeak: return {.actual = true, .required = true};
  }
  return {.actual = false, .required = false};
}
}  // namespace

std::vector<Case> cases(std::span<const LabelRow> labels, const GateLabelEraBoundaries& boundaries) {
  std::map<std::int64_t, GateLabel> latest;
  for (const auto& row : labels) latest[row.atMs] = row.label;
  std::vector<Case> found;
  for (const auto& [atMs, label] : latest) {
    const auto [actual, required] = meaning(label);
    const auto when = gateLabelEra(atMs, boundaries);
    const auto pass = when != GateLabelEra::current ? Pass::residual : required ? Pass::dead : Pass::overcorrection;
    found.push_back({.atMs = atMs,
                     .label = label,
                     .actual = actual,
                     .required = required,
                     .role = actual == required ? Role::confirmatory : Role::corrective,
                     .pass = pass,
                     .era = when});
  }
  return found;
}

Outcome outcome(std::span<const Case> cases, const std::map<std::int64_t, bool>& replayed) {
  Outcome told{.passes = {PassResult{.pass = Pass::dead}, PassResult{.pass = Pass::overcorrection}, PassResult{.pass = Pass::residual}}};
  for (const auto& one : cases) {
    auto& result = told.passes[static_cast<std::size_t>(one.pass)];
    ++result.total;
    const auto spoke = replayed.find(one.atMs);
    if (spoke != replayed.end() && spoke->second == one.required)
      ++result.satisfied;
    else
      result.failures.push_back(one.atMs);
  }
  told.isGreen = told.passes[0].failures.empty() && told.passes[1].failures.empty();
  return told;
}

}  // namespace halvo::GateFeedbackLadder
