#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Present/ReviewWords.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// A review as it is shown. Until a moment is answered nothing here tells what the system made of it.
struct ReviewPage {
  enum class Step {
    start,    ///< no review is open
    blind,    ///< what was really going on
    reason,   ///< whether the verdict's sentence was right
    gate,     ///< whether the gate was
    seen,     ///< nothing is left to ask of this moment
    finished
  };
  struct Choice {
    std::string words = {}, hint = {};
    bool operator==(const Choice&) const = default;
  };
  struct Moment {
    std::int64_t atMs = 0;
    std::int64_t frameMs = 0;  ///< the instant that its clip ends on
    std::string when = {}, declared = {}, inFront = {};
    bool operator==(const Moment&) const = default;
  };
  struct Revealed {
    std::string answer = {};  ///< the person's own; empty when it was given before the program ended
    std::string verdict = {}, gate = {};
    bool operator==(const Revealed&) const = default;
  };

  Step step = Step::start;
  std::string progress = {};  ///< "3 of 20"; when finished "20 answered, 0 passed over"
  std::string notice = {};    ///< which groups are short of moments, or what there is to say before a review
  std::optional<Moment> moment = {};
  std::optional<Revealed> revealed = {};
  std::string question = {};
  std::vector<Choice> choices = {};  ///< of the question, numbered from 1
  std::string failure = {};          ///< why what was asked for was not done; the page is what it was before
  std::optional<ReviewWords::Score> score = {};  ///< when finished

  enum class Reason { open, settled };
  /// `reason`: whether the reason's grade is still to be asked for.
  static ReviewPage of(const ReviewSession& session, Reason reason, const Calendar& calendar);
  /// The answers to the first question.
  static std::vector<Choice> firstChoices();
  bool operator==(const ReviewPage&) const = default;
};

}  // namespace halvo
