#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

#include "AmbitudeCore/Classifier/ClassifierBackend.h"
#include "CaptureShared/Privacy/RedactionReport.h"
#include "CaptureShared/Privacy/SensitiveSites.h"
#include "CaptureShared/Records/ClassifierTick.h"

/// A second look at the sentence that the classifier wrote about a private screen, before the sentence is kept. A sentence that was not
/// cleared is never kept: a failure of the check replaces it.
namespace halvo::ClassifierReasonPrivacyCheck {

struct Site {
  SensitiveSites::Category category = SensitiveSites::Category::financial;
  bool operator==(const Site&) const = default;
};
struct IdentifiersOnScreen {
  bool operator==(const IdentifiersOnScreen&) const = default;
};
/// What made the screen a private one.
using Trigger = std::variant<Site, IdentifiersOnScreen>;
/// Redacted identifiers outweigh a site; absent: nothing to check.
std::optional<Trigger> trigger(const RedactionReport& redactions, std::optional<SensitiveSites::Category> category);
/// "identifiers_on_screen", "financial" or "medical".
std::string_view name(const Trigger& trigger);

struct Failed {
  std::string text = {};
  bool operator==(const Failed&) const = default;
};
struct Flagged {
  bool operator==(const Flagged&) const = default;
};
struct NoVerdict {
  bool operator==(const NoVerdict&) const = default;
};
using ReplacedBecause = std::variant<Failed, Flagged, NoVerdict>;

struct Kept {
  Trigger trigger = {};
  bool operator==(const Kept&) const = default;
};
struct Replaced {
  Trigger trigger = {};
  ReplacedBecause because = {};
  bool operator==(const Replaced&) const = default;
};
struct NotRun {
  bool operator==(const NotRun&) const = default;
};
using Result = std::variant<NotRun, Kept, Replaced>;

inline constexpr double longestTimeoutSec = 30;
inline constexpr int numPredict = 256;

/// Asks the local model whether `reason` tells private details. Never throws but `Cancelled`: every other failure is `Replaced`.
Result check(std::string_view reason, const std::optional<std::string>& declaredTask, const Trigger& trigger,
             const ClassifierBackend::Config& config, HTTPTransport& transport, const std::stop_token& stop);

/// What stands in a row in place of the sentence.
std::string replacement(const Trigger& trigger);
/// The row's `reason_check`: the trigger's name, "replaced_flagged", "replaced_no_verdict" or "replaced_failed:" and the failure; absent
/// when the check did not run.
std::optional<std::string> logged(const Result& result);

inline constexpr std::string_view withheldUserNote = "The reason for this one was withheld for privacy and wasn't saved.";
/// What a person is shown for a row's reason: the note for any reason that was replaced.
std::optional<std::string> displayReason(const ClassifierTick& tick);
std::optional<std::string> displayReason(const std::optional<std::string>& reason, const std::optional<std::string>& reasonCheck);

}  // namespace halvo::ClassifierReasonPrivacyCheck
