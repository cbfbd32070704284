#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Folds/DoNotDisturbWindow.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/ClassifierTick.h"

/// Whether what the person does still matches what the coach expected when it went quiet: one cheap question to a model.
namespace halvo::PatternBreakCheck {

inline constexpr double baselineLookback = 900.0;           ///< seconds before the window that show what "the same" was
inline constexpr std::size_t baselineTickCap = 15;          ///< newest first to stay
inline constexpr std::size_t windowTickCap = 25;            ///< likewise
inline constexpr std::size_t minimumTimelineTicks = 2;      ///< one judgment alone is no pattern

struct Verdict {
  bool broken = false;
  std::string reason = {};  ///< the model's words; empty unless broken
  bool operator==(const Verdict&) const = default;
};
struct Question {
  DoNotDisturbWindow window = {};
  std::span<const ClassifierTick> ticks = {};
  std::int64_t asOfMs = 0;
  std::size_t minimumTimelineTicks = PatternBreakCheck::minimumTimelineTicks;
  Calendar calendar = Calendar::local();
};
/// Absent, without a call, for a blind window and a timeline with fewer judgments than the minimum. Throws `ModelBackendError`, `Cancelled`.
std::optional<Verdict> evaluate(const Question& question, ModelBackend& backend, const std::stop_token& stop);

/// "CHANGED" as the first word counts; any doubt is SAME.
Verdict verdictOf(std::string_view reply);

}  // namespace halvo::PatternBreakCheck
