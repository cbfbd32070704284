#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Signals/SignalsReader.h"

namespace halvo {

/// What is known of one moment, without its picture. Absent: not known, or does not apply.
struct ClassifierState {
  std::int64_t tsMs = 0;                                  ///< the moment judged
  std::optional<std::string> frontmostApp = {};           ///< of the newest sample
  std::optional<std::string> frontmostWindowTitle = {};   ///< of that app's focused content window
  std::optional<std::string> browserApp = {}, browserTitle = {}, browserURL = {};  ///< only while the browser is in front
  std::optional<double> idleAnySec = {};                  ///< since any input
  std::optional<std::string> declaredTask = {};           ///< the declaration's whole text, as the task file has it
  std::vector<SignalsReader::AppMinutes> recentApps10Min = {};
  std::optional<double> minutesSinceDeclared = {};
  std::optional<double> estimateMinutes = {};
  std::optional<double> minutesOverEstimate = {};         ///< below 0 while there is time left
  std::optional<double> gapSinceLastPresentMinutes = {};  ///< length of the absence before the present run; 0: none found
  std::optional<bool> gapFollowedTaskEndpoint = {};       ///< whether the declared time was up before that absence began
  std::optional<double> minutesSinceReturn = {};          ///< since the present run began

  bool operator==(const ClassifierState&) const = default;
};

/// The model's answer.
struct ClassifierJudgment {
  std::string state = {};  ///< "ON_TASK", "NOT_ALIGNED", "IDLE" or "NO_TASK"; "ABSTAINED" only from this system itself
  double confidence = 0;   ///< 0 to 1
  std::string reason = {};
  bool operator==(const ClassifierJudgment&) const = default;
};

}  // namespace halvo
