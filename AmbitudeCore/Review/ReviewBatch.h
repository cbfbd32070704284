#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Review/RampLabelSubmission.h"
#include "AmbitudeCore/Review/RampSample.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// The moments of one review and how far it has come: `review-batch.json` in the data root while it is under way.
struct ReviewBatch {
  enum class Stage {
    blind,     ///< not answered yet: nothing of the verdict may be shown
    revealed,  ///< answered; the verdict is shown, and the gate's question waits
    done,
    skipped
  };
  struct Item {
    RampSampleSelector::Sample sample = {};
    Stage stage = Stage::blind;
    std::optional<RampLabelSubmission::Layer1Answer> answer = {};  ///< absent also for one found answered after a crash
    bool operator==(const Item&) const = default;
  };

  RampSampleSelector::SamplingMode mode = RampSampleSelector::SamplingMode::verdictBlind;
  std::uint64_t seed = 0;
  std::int64_t drawnAtMs = 0;
  std::optional<std::string> notice = {};  ///< which groups didn't get their share
  std::vector<Item> items = {};

  /// In the seeded order: neither a stratum nor a score may be guessed from a moment's place.
  static ReviewBatch make(std::vector<RampSampleSelector::Sample> samples, RampSampleSelector::SamplingMode mode, std::uint64_t seed,
                          std::int64_t drawnAtMs);
  std::string encode() const;
  /// Absent for anything that is no such batch, whole.
  static std::optional<ReviewBatch> decode(std::string_view text);
  bool operator==(const ReviewBatch&) const = default;
};
template <>
struct RawValues<ReviewBatch::Stage> {
  using Stage = ReviewBatch::Stage;
  static constexpr std::array table{std::pair{Stage::blind, "blind"}, std::pair{Stage::revealed, "revealed"},
                                    std::pair{Stage::done, "done"}, std::pair{Stage::skipped, "skipped"}};
};

}  // namespace halvo
