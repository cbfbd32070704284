#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "AmbitudeCore/Review/GateGapLabelWriter.h"
#include "AmbitudeCore/Review/GateLabelWriter.h"
#include "AmbitudeCore/Review/RampSample.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/RawValue.h"

/// Keeps the answers of a review. What throws kept nothing: the answer stays with the caller.
namespace halvo::RampLabelSubmission {

using RampSampleSelector::Sample;

/// What was really going on.
enum class Layer1Answer { onTask, onTaskOvertime, switchingTasks, rabbitHole, notAligned, notUsingComputer, ambiguous };
/// What tells an answer from its neighbours, where its name alone does not.
std::optional<std::string> hint(Layer1Answer answer);

/// In the notes of a label that was given when the verdict had been seen.
inline constexpr std::string_view revisedAfterRevealNote = "revised AFTER reveal — anchored on the classifier's verdict";

struct Layer1 {
  Layer1Answer answer = Layer1Answer::ambiguous;
  std::optional<std::string> note = {};  ///< goes before the sample's provenance
  bool answeredBlind = true;             ///< false adds `revisedAfterRevealNote`
  std::optional<std::string> comment = {};  ///< the person's own words
  std::int64_t asOfMs = 0;
};
/// Throws `LabelsWriter::LabelsWriterError`.
void submitLayer1(const Layer1& given, const Sample& forSample, const Calendar& calendar, const std::filesystem::path& labelsPath);

/// The sample's question is about a decision; anything else is a fault in the caller and throws `std::logic_error`. Throws
/// `GateLabelWriter::WriteError`, `JSONLAppendError`.
void submitLayer2(GateLabel label, const Sample& forSample, const std::optional<std::string>& note, std::int64_t asOfMs,
                  const std::filesystem::path& gateLabelsURL);
/// The same for a stretch in which the gate was not asked.
void submitLayer2Gap(GateGapLabelWriter::Label label, const Sample& forSample, const std::optional<std::string>& note, std::int64_t asOfMs,
                     const std::filesystem::path& gateGapLabelsURL);

}  // namespace halvo::RampLabelSubmission

namespace halvo {
template <>
struct RawValues<RampLabelSubmission::Layer1Answer> {
  using Answer = RampLabelSubmission::Layer1Answer;
  static constexpr std::array table{std::pair{Answer::onTask, "on_task"},
                                    std::pair{Answer::onTaskOvertime, "on_task_overtime"},
                                    std::pair{Answer::switchingTasks, "switching_tasks"},
                                    std::pair{Answer::rabbitHole, "rabbit_hole"},
                                    std::pair{Answer::notAligned, "not_aligned"},
                                    std::pair{Answer::notUsingComputer, "not_using_computer"},
                                    std::pair{Answer::ambiguous, "ambiguous"}};
};
}  // namespace halvo
