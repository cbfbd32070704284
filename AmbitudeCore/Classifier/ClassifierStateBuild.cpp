#include <algorithm>

#include "AmbitudeCore/Classifier/ClassifierSelfObservation.h"
#include "AmbitudeCore/Classifier/ClassifierService.h"
#include "AmbitudeCore/Folds/Declaration.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Intention/EventLog.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo::ClassifierService {
namespace {

constexpr double presentIdleSec = 180;               ///< someone who reads may go this long without input
constexpr std::int64_t longestSampleGapMs = 180'000;  ///< a longer silence of the sampler counts as an absence
constexpr std::int64_t recentAppsMs = 600'000;
constexpr int mostRows = 12'000;  ///< five hours of samples, more than `hardResetGapMs` can hold

/// Not below 0: a declaration or a row from behind the present means that the clock was set back.
double minutesBetween(std::int64_t fromMs, std::int64_t toMs) {
  return static_cast<double>(std::max<std::int64_t>(toMs - fromMs, 0)) / 60'000;
}

std::optional<std::string> withoutLastNewline(std::optional<std::string> body) {
  if (!body) return std::nullopt;
  while (body->ends_with('\n')) body->pop_back();
  if (Text::isBlank(*body)) return std::nullopt;
  return body;
}

/// Whether the moment is settled whatever the estimate is: then the model is not bothered for one.
bool settlesWithoutEstimate(const ClassifierState& state) {
  return isAway(state) || ClassifierSelfObservation::isOwnWindowNow(state.frontmostApp);
}

}  // namespace

Declaration declaration(const DeclarationSources& sources) {
  if (const auto* row = LatestDeclaration::event(sources.jsonlEvents, sources.asOfMs)) {
    const auto* detail = row->detail.objectValue();
    Declaration found{.text = withoutLastNewline(EventLog::taskFileBody(row->type, detail ? std::optional(*detail) : std::nullopt,
                                                                        row->tsMs, sources.calendar))};
    if (!found.text) return {};
    found.declaredAtMs = row->tsMs;
    found.horizonMinutes = cleanTaskMinutes(row->detail.find("horizon_minutes"));
    return found;
  }
  Declaration kept{.text = withoutLastNewline(sources.taskFileBody)};
  if (kept.text) kept.declaredAtMs = sources.signals.taskDeclaredTsMsFromSQLiteEvents(sources.asOfMs);
  return kept;
}

std::optional<double> knownEstimateMinutes(const Declaration& declaration, const SignalsReader& signals) {
  if (declaration.horizonMinutes || !declaration.text) return declaration.horizonMinutes;
  const auto kept = signals.cachedEstimateMinutes(*declaration.text);
  return kept ? kept->minutes : std::nullopt;
}

ClassifierCadence::Episode episode(const Declaration& declaration, std::optional<double> estimateMinutes, std::int64_t nowMs) {
  ClassifierCadence::Episode result{.declaredTask = declaration.text};
  if (!declaration.text || !declaration.declaredAtMs) return result;
  result.minutesSinceDeclared = minutesBetween(*declaration.declaredAtMs, nowMs);
  if (estimateMinutes) result.estimateBoundaryMs = *declaration.declaredAtMs + static_cast<std::int64_t>(*estimateMinutes * 60'000);
  return result;
}

Presence presence(std::span<const SignalsReader::TickRow> rows, std::int64_t asOfMs) {
  const auto isPresent = [&](std::size_t i) { return SignalsReader::isPresent(rows[i], presentIdleSec); };
  std::size_t at = 0;
  while (at < rows.size() && isPresent(at) && (at == 0 || rows[at - 1].tsMs - rows[at].tsMs <= longestSampleGapMs)) ++at;
  // The run fills the rows: whoever is there now has been there all along.
  if (at == rows.size()) return {.gapMinutes = rows.empty() ? std::nullopt : std::optional(0.0)};
  Presence found;
  const auto runStartMs = at > 0 ? rows[at - 1].tsMs : asOfMs;
  if (at > 0) found.minutesSinceReturn = minutesBetween(runStartMs, asOfMs);
  while (at < rows.size() && !isPresent(at)) ++at;
  if (at == rows.size()) return found;
  found.gapStartMs = rows[at].tsMs;
  found.gapMinutes = minutesBetween(rows[at].tsMs, runStartMs);
  return found;
}

bool isAway(const ClassifierState& state) {
  return (state.frontmostApp && Text::lower(*state.frontmostApp) == "loginwindow") || state.idleAnySec.value_or(0) > awayIdleSec;
}

ClassifierState buildState(const StateSources& sources) {
  const auto& signals = sources.signals;
  const auto& declared = sources.declaration;
  ClassifierState state{.tsMs = sources.asOfMs, .declaredTask = declared.text};
  if (const auto tick = signals.latestTick(sources.asOfMs)) {
    state.frontmostApp = tick->frontmostApp;
    state.idleAnySec = tick->idleAnySec;
    if (tick->frontmostApp)
      if (const auto window = signals.contentWindow(tick->tsMs, *tick->frontmostApp)) state.frontmostWindowTitle = window->title;
    if (tick->browserApp && tick->browserApp == tick->frontmostApp) {
      state.browserApp = tick->browserApp;
      state.browserTitle = tick->browserTitle;
      state.browserURL = tick->browserURL;
    }
  }
  state.recentApps10Min = signals.recentApps(sources.asOfMs, recentAppsMs);

  if (declared.text) {
    if (declared.declaredAtMs) state.minutesSinceDeclared = minutesBetween(*declared.declaredAtMs, sources.asOfMs);
    state.estimateMinutes = knownEstimateMinutes(declared, signals);
    const bool neverAsked = !declared.horizonMinutes && !signals.cachedEstimateMinutes(*declared.text);
    if (neverAsked && sources.estimate && !settlesWithoutEstimate(state)) state.estimateMinutes = sources.estimate(*declared.text);
    if (state.minutesSinceDeclared && state.estimateMinutes)
      state.minutesOverEstimate = *state.minutesSinceDeclared - *state.estimateMinutes;
  }

  const auto found = presence(signals.ticksBackward(sources.asOfMs, sources.asOfMs - hardResetGapMs, mostRows), sources.asOfMs);
  state.gapSinceLastPresentMinutes = found.gapMinutes;
  state.minutesSinceReturn = found.minutesSinceReturn;
  if (found.gapStartMs && declared.declaredAtMs && state.estimateMinutes)
    state.gapFollowedTaskEndpoint = static_cast<double>(*declared.declaredAtMs) + *state.estimateMinutes * 60'000 <=
                                    static_cast<double>(*found.gapStartMs);
  return state;
}

}  // namespace halvo::ClassifierService
