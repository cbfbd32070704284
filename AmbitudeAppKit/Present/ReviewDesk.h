#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "AmbitudeAppKit/Present/ReviewPage.h"
#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// The review of a person at the window: what they do goes in, the page that shows it comes out. Nothing throws; what can't be done is in
/// the page's `failure`, and nothing has changed then. It reads and writes files: one thread at a time, not the main one.
class ReviewDesk {
 public:
  struct Config {
    std::filesystem::path root = {};
    Calendar calendar = Calendar::local();
    std::function<std::int64_t()> nowMs = {};
    RampSampleSelector::IsRenderable isRenderable = {};  ///< whether there is footage of a moment
  };
  enum class Footage { needed, optional };
  struct Draw {
    RampSampleSelector::SamplingMode mode = RampSampleSelector::SamplingMode::verdictBlind;
    std::int64_t limit = 20;
    Footage footage = Footage::needed;
  };
  using OnProgress = std::function<void(const std::string&)>;

  explicit ReviewDesk(Config config) : config_(std::move(config)) {}

  /// The review under way; where there is none, the one that was left.
  ReviewPage open();
  /// Draws another in place of whatever is open.
  ReviewPage draw(const Draw& wanted, const OnProgress& onProgress);
  /// Answers the page's question by a place in its choices, with the person's own words; none are kept of a reason's grade.
  ReviewPage choose(std::size_t place, const std::string& words);
  /// Another first answer, once the verdict is known.
  ReviewPage revise(std::size_t place, const std::string& words);
  /// On without an answer.
  ReviewPage pass();

 private:
  ReviewPage page();
  /// The page after `change`, or with why it failed.
  ReviewPage after(const std::function<void()>& change, const char* failed);
  void answer(std::size_t place, const std::optional<std::string>& words);
  ReviewWords::Score score() const;

  Config config_;
  std::optional<ReviewSession> session_;
  ReviewPage::Reason reason_ = ReviewPage::Reason::open;
};

}  // namespace halvo
