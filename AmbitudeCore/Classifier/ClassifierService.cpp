#include "AmbitudeCore/Classifier/ClassifierService.h"

#include <fmt/format.h>

#include "AmbitudeCore/Classifier/ClassifierSelfObservation.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/OutboundTitlePrivacy.h"
#include "CaptureShared/Privacy/SecretRedaction.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"
#include "CaptureShared/Privacy/SensitiveSites.h"

namespace halvo::ClassifierService {
namespace {

constexpr double staleMinutes = 240;  ///< of silence, or past the declared end

ClassifierJudgment settled(std::string_view state, std::string reason) {
  return {.state = std::string(state), .confidence = 1.0, .reason = std::move(reason)};
}

std::optional<SensitiveSites::Category> site(const ClassifierState& state) {
  return SensitiveSites::category(
      {.browserURL = state.browserURL, .browserTitle = state.browserTitle, .windowTitle = state.frontmostWindowTitle});
}

std::string_view cause(const ClassifierReasonPrivacyCheck::ReplacedBecause& because) {
  return match(
      because, [](const ClassifierReasonPrivacyCheck::Failed& failed) { return std::string_view(failed.text); },
      [](const ClassifierReasonPrivacyCheck::Flagged&) { return std::string_view("flagged"); },
      [](const ClassifierReasonPrivacyCheck::NoVerdict&) { return std::string_view("unparseable reply"); });
}

}  // namespace

std::optional<ClassifierJudgment> shortcut(const ClassifierState& state, const std::optional<std::string>& taskOverride) {
  if (!taskOverride) {
    if (state.frontmostApp && Text::lower(*state.frontmostApp) == "loginwindow")
      return settled("IDLE", "screen locked (loginwindow) — not in use");
    if (const auto idleSec = state.idleAnySec.value_or(0); idleSec > awayIdleSec)
      return settled("IDLE", fmt::format("away ~{}s — no check", static_cast<std::int64_t>(idleSec)));
  }
  if (ClassifierSelfObservation::isOwnWindowNow(state.frontmostApp))
    return settled(ClassifierSelfObservation::abstainedState, std::string(ClassifierSelfObservation::abstainedReason));
  if (taskOverride) return std::nullopt;
  if (state.minutesOverEstimate && *state.minutesOverEstimate >= staleMinutes)
    return settled("NO_TASK",
                   fmt::format("over {}h past your own estimate's end — treating the earlier declaration as stale rather than still "
                               "judging against it",
                               static_cast<std::int64_t>(*state.minutesOverEstimate / 60)));
  const bool quietGap = state.declaredTask && state.minutesSinceDeclared.value_or(0) >= staleMinutes &&
                        state.gapSinceLastPresentMinutes.value_or(staleMinutes) >= staleMinutes;
  if (quietGap)
    return settled("NO_TASK",
                   "no activity for at least 4h — treating the earlier declaration as stale rather than still judging against it");
  return std::nullopt;
}

Outcome judge(const JudgeRequest& request, HTTPTransport& transport, const std::stop_token& stop) {
  if (auto verdict = shortcut(request.state, request.taskOverride))
    return {.state = verdict->state, .judgment = *verdict, .contentWithheldForDenylist = request.contentWithheldForDenylist};

  auto [message, report] = ClassifierPrompt::buildRedactedUserMessage({.state = request.state,
                                                                       .taskOverride = request.taskOverride,
                                                                       .windowContent = request.windowContent,
                                                                       .userInstructions = request.userInstructions,
                                                                       .contentWithheldForDenylist = request.contentWithheldForDenylist});
  report.merge(request.upstreamRedactions);
  auto judgment = ClassifierBackend::judge(ClassifierPrompt::system, message, request.config, transport, stop);

  ClassifierReasonPrivacyCheck::Result checked;
  if (const auto trigger = ClassifierReasonPrivacyCheck::trigger(report, site(request.state))) {
    const auto& task = request.taskOverride ? request.taskOverride : request.state.declaredTask;
    checked = ClassifierReasonPrivacyCheck::check(judgment.reason, task, *trigger, request.config, transport, stop);
    if (std::holds_alternative<ClassifierReasonPrivacyCheck::Replaced>(checked))
      judgment.reason = ClassifierReasonPrivacyCheck::replacement(*trigger);
  }
  judgment.reason = SecretRedaction::redact(
      SensitiveIdentifierRedaction::redact(judgment.reason, SensitiveIdentifierRedaction::Scope::outbound, report), report);
  return {.state = judgment.state,
          .judgment = std::move(judgment),
          .calledModel = true,
          .redactions = std::move(report),
          .reasonCheck = std::move(checked),
          .contentWithheldForDenylist = request.contentWithheldForDenylist};
}

std::vector<std::string> Outcome::privacyLogLines() const {
  std::vector<std::string> lines;
  if (!redactions.isEmpty()) lines.push_back("redacted from classifier input: " + redactions.summary());
  if (const auto* replaced = std::get_if<ClassifierReasonPrivacyCheck::Replaced>(&reasonCheck))
    lines.push_back(fmt::format("reason privacy check ({}): replaced reason ({})", ClassifierReasonPrivacyCheck::name(replaced->trigger),
                                cause(replaced->because)));
  return lines;
}

ClassifierTick loggedTick(const Logged& logged) {
  // A page's title is private by its address, which the title alone does not tell: "Accounts".
  const auto category = site(logged.state);
  const auto title = [&](const std::optional<std::string>& text) {
    if (text && category) return std::optional(std::string(OutboundTitlePrivacy::genericToken(*category)));
    return OutboundTitlePrivacy::sanitize(text);
  };
  const auto scrubbed = [](const std::optional<std::string>& text) { return text ? std::optional(Text::scrubbed(*text)) : std::nullopt; };
  const auto& outcome = logged.outcome;
  ClassifierTick tick{.at = logged.calendar.isoMillis(logged.atMs),
                      .state = outcome.state,
                      .frontmostApp = scrubbed(logged.state.frontmostApp),
                      .frontmostWindowTitle = title(logged.state.frontmostWindowTitle),
                      .browserTitle = title(logged.state.browserTitle),
                      .reason = Text::scrubbed(outcome.judgment.reason),
                      .confidence = outcome.judgment.confidence,
                      .declaredTask = scrubbed(logged.state.declaredTask),
                      .screenshotAtMs = logged.screenshotAtMs,
                      .reasonCheck = ClassifierReasonPrivacyCheck::logged(outcome.reasonCheck)};
  if (outcome.calledModel) tick.model = logged.model;
  if (outcome.contentWithheldForDenylist) tick.contentWithheldForDenylist = rawValue(*outcome.contentWithheldForDenylist);
  return tick;
}

}  // namespace halvo::ClassifierService
