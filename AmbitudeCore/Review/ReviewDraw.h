#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "CaptureShared/Foundation/Calendar.h"

/// Makes a new review from what the logs of a data root hold.
namespace halvo::ReviewDraw {

struct Request {
  std::filesystem::path root = {};
  RampSampleSelector::SamplingMode mode = RampSampleSelector::SamplingMode::verdictBlind;
  std::int64_t limit = 20;
  std::optional<std::uint64_t> seed = {};  ///< absent: the time
  std::int64_t asOfMs = 0;
  RampSampleSelector::IsRenderable isRenderable = {};                          ///< empty: moments without footage too
  std::function<void(const RampSampleSelector::RampLoadPhase::Phase&)> onProgress = {};
};

/// `labels.sqlite`, where it is missing: whoever reads answers expects it. Throws `SQLiteError`.
void makeLabels(const std::filesystem::path& root);

/// The review, kept as the open one in place of any other. Absent when there is no moment to ask about; then nothing was written. Throws
/// `SQLiteError`, `AnsweredMoments::ReadError`, `std::system_error`.
std::optional<ReviewSession> draw(const Request& request, const Calendar& calendar);

}  // namespace halvo::ReviewDraw
