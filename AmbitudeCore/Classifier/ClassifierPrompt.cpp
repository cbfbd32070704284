#include "AmbitudeCore/Classifier/ClassifierPrompt.h"

#include "CaptureShared/Foundation/OrderedJSON.h"
#include "CaptureShared/Foundation/PyRepr.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/ScreenText.h"
#include "CaptureShared/Privacy/SecretRedaction.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace halvo::ClassifierPrompt {
namespace {

constexpr double leastTellingGapMinutes = 15;      ///< a shorter absence is an ordinary break between two looks
constexpr double longestTellingReturnMinutes = 30;  ///< after that the present run speaks for itself

std::string redacted(std::string_view text, RedactionReport& report) {
  return SecretRedaction::redact(SensitiveIdentifierRedaction::redact(text, SensitiveIdentifierRedaction::Scope::outbound, report), report);
}

std::optional<std::string> redacted(const std::optional<std::string>& text, RedactionReport& report) {
  if (!text) return std::nullopt;
  return redacted(std::string_view(*text), report);
}

std::string shown(std::string_view text, std::size_t cap) { return ScreenText::breakTurnMarkers(Text::capped(text, cap)); }

OrderedJSON shownOrNull(const std::optional<std::string>& text, std::size_t cap) {
  return text ? OrderedJSON(shown(*text, cap)) : OrderedJSON();
}

OrderedJSON activity(const ClassifierState& state) {
  OrderedJSON::Array recent;
  for (const auto& [app, minutes] : state.recentApps10Min)
    recent.push_back(OrderedJSON::Object{{"app", shown(app, titleCap)}, {"approx_minutes", minutes}});
  OrderedJSON::Object object{{"frontmost_app", shownOrNull(state.frontmostApp, titleCap)},
                             {"frontmost_window_title", shownOrNull(state.frontmostWindowTitle, titleCap)},
                             {"browser_title", shownOrNull(state.browserTitle, titleCap)},
                             {"browser_url", shownOrNull(state.browserURL, addressCap)},
                             {"seconds_since_last_input", OrderedJSON::numberOrNull(state.idleAnySec)},
                             {"what_youve_been_in_last_10min", std::move(recent)}};
  if (state.minutesSinceDeclared) object.emplace_back("minutes_since_declared", *state.minutesSinceDeclared);
  if (state.minutesOverEstimate) object.emplace_back("minutes_over_estimate", *state.minutesOverEstimate);
  const auto& gap = state.gapSinceLastPresentMinutes;
  const auto& back = state.minutesSinceReturn;
  if (gap && *gap >= leastTellingGapMinutes && (!back || *back < longestTellingReturnMinutes)) {
    object.emplace_back("gap_since_last_activity_min", *gap);
    if (state.gapFollowedTaskEndpoint)
      object.emplace_back("gap_context", *state.gapFollowedTaskEndpoint
                                             ? "the declared task's own estimated end had already passed before this gap began"
                                             : "the user was still within the declared task's estimated time when they went idle");
  }
  return object;
}

}  // namespace

WindowContent redactedWindowContent(std::string_view ocrText, std::string_view description) {
  WindowContent content;
  const auto text = redacted(ocrText, content.redactions);
  const auto seen = redacted(description, content.redactions);
  content.text = PyRepr::windowContentDict(shown(text, screenTextCap), shown(seen, descriptionCap));
  return content;
}

std::string buildUserMessage(const Parts& parts) {
  const auto& task = parts.taskOverride ? parts.taskOverride : parts.state.declaredTask;
  std::string message = "DECLARED INTENTION:\n";
  message += task && !Text::isBlank(*task) ? shown(*task, taskCap) : "(none declared)";
  if (parts.userInstructions) message += "\n\n" + *parts.userInstructions;
  message += "\n\nCURRENT ACTIVITY (right now):\n" + activity(parts.state).render(0);
  if (parts.contentWithheldForDenylist)
    message.append("\n\nWINDOW_CONTENT:\n").append(promptText(*parts.contentWithheldForDenylist));
  else if (parts.windowContent)
    message += "\n\nWINDOW_CONTENT:\n" + parts.windowContent->text;
  return message + "\n\nJudge it.";
}

std::pair<std::string, RedactionReport> buildRedactedUserMessage(const Parts& parts) {
  RedactionReport report;
  auto state = parts.state;
  for (auto* text : {&state.declaredTask, &state.frontmostApp, &state.frontmostWindowTitle, &state.browserTitle, &state.browserURL})
    *text = redacted(*text, report);
  const Parts clean{.state = state,
                    .taskOverride = redacted(parts.taskOverride, report),
                    .windowContent = parts.windowContent,
                    .userInstructions = parts.userInstructions,
                    .contentWithheldForDenylist = parts.contentWithheldForDenylist};
  if (parts.windowContent && !parts.contentWithheldForDenylist) report.merge(parts.windowContent->redactions);
  return {buildUserMessage(clean), std::move(report)};
}

}  // namespace halvo::ClassifierPrompt
