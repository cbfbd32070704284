#include "AmbitudeCore/Classifier/ClassifierReasonPrivacyCheck.h"

#include <algorithm>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Classifier/ModelReply.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::ClassifierReasonPrivacyCheck {
namespace {

/// One trigger's words.
struct Words {
  std::string_view name, shown, screen;
};

Words words(const Trigger& trigger) {
  return match(
      trigger,
      [](const IdentifiersOnScreen&) {
        return Words{"identifiers_on_screen", "account, card or ID numbers", "a screen showing account, card or ID numbers"};
      },
      [](const Site& site) {
        switch (site.category) {
          case SensitiveSites::Category::financial:
            return Words{"financial", "a banking or other financial site", "a banking or other financial screen"};
          case SensitiveSites::Category::medical: return Words{"medical", "a medical or health site", "a medical or health screen"};
        }
        return Words{};
      });
}

std::string system(const Trigger& trigger) {
  const std::string shown(words(trigger).shown);
  return "A classifier on this computer has just written one sentence explaining its judgment of what the user is doing. That sentence is "
         "kept in a log and read by a coach that may run on a remote server, so whatever it says leaves this computer. The screen it was "
         "judging showed " +
         shown + ", which means the sentence may carry private details from " + shown + ". " +
         "Decide whether it does. Private means specific to this person's finances, health or identity as shown on that screen: amounts, "
         "balances, transactions, who they paid or were paid by, diagnoses, conditions, medications, test results, appointment details, "
         "their providers, and any account, card or ID number. Naming the site or app, describing the kind of activity, and repeating the "
         "user's own declared intention are not private — the coach needs those to do its job, and the user chose to share the "
         "intention.\n\nRespond with STRICT JSON only: {\"private\": true|false}";
}

std::string user(std::string_view reason, const std::optional<std::string>& declaredTask) {
  std::string message = "DECLARED INTENTION:\n";
  message += declaredTask && !Text::isBlank(*declaredTask) ? ScreenText::breakTurnMarkers(*declaredTask) : "(none declared)";
  message += "\n\nSENTENCE:\n" + ScreenText::breakTurnMarkers(reason);
  return message + "\n\nDoes the sentence carry private details from that screen? Reply {\"private\": true|false}.";
}

}  // namespace

std::optional<Trigger> trigger(const RedactionReport& redactions, std::optional<SensitiveSites::Category> category) {
  if (!redactions.isEmpty()) return IdentifiersOnScreen{};
  if (category) return Site{*category};
  return std::nullopt;
}

std::string_view name(const Trigger& trigger) { return words(trigger).name; }

Result check(std::string_view reason, const std::optional<std::string>& declaredTask, const Trigger& trigger,
             const ClassifierBackend::Config& config, HTTPTransport& transport, const std::stop_token& stop) {
  try {
    const auto reply = LocalInferenceWire::ask({.endpoint = config.endpoint,
                                                .model = config.model,
                                                .messages = {LocalInferenceWire::message(ChatRole::system, system(trigger)),
                                                             LocalInferenceWire::message(ChatRole::user, user(reason, declaredTask))},
                                                .maxTokens = numPredict,
                                                .timeoutSec = std::min(config.timeout, longestTimeoutSec),
                                                .jsonReply = true},
                                               transport, stop);
    const auto json = JSONValue::parse(reply);
    const auto* object = json ? json->objectValue() : nullptr;
    const auto isPrivate = object ? object->boolean("private") : std::nullopt;
    if (!isPrivate) return Replaced{trigger, NoVerdict{}};
    if (*isPrivate) return Replaced{trigger, Flagged{}};
    return Kept{trigger};
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    return Replaced{trigger, Failed{ModelReply::excerpt(describeError(error))}};
  }
}

std::string replacement(const Trigger& trigger) {
  return "Reason withheld for privacy on " + std::string(words(trigger).screen) + "; judge from the verdict " + "and that category.";
}

std::optional<std::string> logged(const Result& result) {
  using Text = std::optional<std::string>;
  return match(
      result, [](const NotRun&) { return Text(); }, [](const Kept& kept) { return Text(name(kept.trigger)); },
      [](const Replaced& replaced) {
        return match(
            replaced.because, [](const Failed& failed) { return Text("replaced_failed:" + failed.text); },
            [](const Flagged&) { return Text("replaced_flagged"); }, [](const NoVerdict&) { return Text("replaced_no_verdict"); });
      });
}

std::optional<std::string> displayReason(const std::optional<std::string>& reason, const std::optional<std::string>& reasonCheck) {
  if (reasonCheck && reasonCheck->starts_with("replaced")) return std::string(withheldUserNote);
  return reason;
}

std::optional<std::string> displayReason(const ClassifierTick& tick) { return displayReason(tick.reason, tick.reasonCheck); }

}  // namespace halvo::ClassifierReasonPrivacyCheck
