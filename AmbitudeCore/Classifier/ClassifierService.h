#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "AmbitudeCore/Classifier/ClassifierBackend.h"
#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "AmbitudeCore/Classifier/ClassifierPrompt.h"
#include "AmbitudeCore/Classifier/ClassifierReasonPrivacyCheck.h"
#include "AmbitudeCore/Classifier/ClassifierState.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Privacy/ContentWithheldReason.h"
#include "CaptureShared/Privacy/RedactionReport.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "CaptureShared/Signals/SignalsReader.h"

/// One judgment: gather what is known, settle what needs no model, ask the model about the rest.
namespace halvo::ClassifierService {

inline constexpr std::int64_t hardResetGapMs = 14'400'000;  ///< four hours: an absence this long ends whatever was going on
inline constexpr double awayIdleSec = 300;                  ///< longer without input is not judged against anything

/// The declaration in force.
struct Declaration {
  std::optional<std::string> text = {};            ///< the whole task file body, without its last newline
  std::optional<std::int64_t> declaredAtMs = {};
  std::optional<double> horizonMinutes = {};       ///< given with the declaration itself
  bool operator==(const Declaration&) const = default;
};

struct DeclarationSources {
  const SignalsReader& signals;
  std::span<const EventLogEvent> jsonlEvents = {};
  std::int64_t asOfMs = 0;
  const Calendar& calendar;
  std::optional<std::string> taskFileBody = {};  ///< stands in when the log has no such row
};
/// The newest `task_declared` or `task_cleared` row. Throws `SignalsReaderError`.
Declaration declaration(const DeclarationSources& sources);

/// The estimate that is known without asking a model: the declaration's own, else the kept one. Throws `SignalsReaderError`.
std::optional<double> knownEstimateMinutes(const Declaration& declaration, const SignalsReader& signals);

/// What the cadence knows of a declaration.
ClassifierCadence::Episode episode(const Declaration& declaration, std::optional<double> estimateMinutes, std::int64_t nowMs);

struct StateSources {
  const SignalsReader& signals;
  std::int64_t asOfMs = 0;
  Declaration declaration = {};
  /// Asks the model for a declaration's minutes; absent when there are none or the call failed. Called only when the answer is not kept
  /// yet and the moment isn't settled without it.
  std::function<std::optional<double>(const std::string& declaredTask)> estimate = {};
};
/// Everything about a moment but its picture. Throws `SignalsReaderError` (then nothing can be judged) and what `estimate` throws.
ClassifierState buildState(const StateSources& sources);

struct Presence {
  std::optional<double> gapMinutes = {};           ///< absent: longer than `hardResetGapMs`; 0: no absence found
  std::optional<double> minutesSinceReturn = {};
  std::optional<std::int64_t> gapStartMs = {};     ///< the last time the person was seen before it
  bool operator==(const Presence&) const = default;
};
/// How long the person was away before the present stretch, from rows newest first. While they are away right now, the absence so far.
Presence presence(std::span<const SignalsReader::TickRow> newestFirst, std::int64_t asOfMs);

/// Whether nobody is at the machine: the lock screen, or no input for longer than `awayIdleSec`.
bool isAway(const ClassifierState& state);

/// The verdict that needs no model; absent when the model has to be asked. With an override only the system's own window counts.
std::optional<ClassifierJudgment> shortcut(const ClassifierState& state, const std::optional<std::string>& taskOverride = {});

struct Outcome {
  std::string state = {};
  ClassifierJudgment judgment = {};  ///< its reason fit to be logged
  bool calledModel = false;
  RedactionReport redactions = {};
  ClassifierReasonPrivacyCheck::Result reasonCheck = {};
  std::optional<ContentWithheldReason> contentWithheldForDenylist = {};

  /// What privacy did to this judgment, in counts and kinds, never values.
  std::vector<std::string> privacyLogLines() const;
  bool operator==(const Outcome&) const = default;
};

struct JudgeRequest {
  const ClassifierState& state;
  std::optional<std::string> taskOverride = {};  ///< judged in place of the declared text, without the shortcut verdicts
  std::optional<ClassifierPrompt::WindowContent> windowContent = {};
  std::optional<std::string> userInstructions = {};
  RedactionReport upstreamRedactions = {};       ///< of texts that were redacted before they came here
  std::optional<ContentWithheldReason> contentWithheldForDenylist = {};
  ClassifierBackend::Config config = {};
};
/// Throws `ModelBackendError` when the model gave no judgment (then no row is written) and `Cancelled`.
Outcome judge(const JudgeRequest& request, HTTPTransport& transport, const std::stop_token& stop);

struct Logged {
  std::int64_t atMs = 0;
  const Outcome& outcome;
  const ClassifierState& state;
  std::optional<std::int64_t> screenshotAtMs = {};
  std::string model = {};
  const Calendar& calendar;
};
/// The row of a judgment, its titles fit to leave the machine.
ClassifierTick loggedTick(const Logged& logged);

}  // namespace halvo::ClassifierService
