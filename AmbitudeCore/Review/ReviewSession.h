#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "AmbitudeCore/Review/ReasonLabelWriter.h"
#include "AmbitudeCore/Review/ReviewBatch.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// One review as a person goes through it, whatever shows it: each moment is answered blind, then the verdict is revealed, then the
/// gate's question is asked. Each answer is kept when its call returns; a call that throws has changed nothing. One thread at a time.
class ReviewSession {
 public:
  using Layer1Answer = RampLabelSubmission::Layer1Answer;
  using Layer2Answer = std::variant<GateLabel, GateGapLabelWriter::Label>;

  struct Places {
    std::filesystem::path labels, gateLabels, gateGapLabels, reasonLabels, batch;
    static Places under(const std::filesystem::path& dataRoot);
  };

  /// `review-batch.json` is not one. It is left as it is.
  class DamagedBatch : public std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  /// A new review. Throws `std::system_error` when it can't be kept, as with a full disk.
  ReviewSession(ReviewBatch batch, Places places, Calendar calendar);
  /// The review that was left; absent when there is none. A moment that has its answer among the labels counts as answered, whatever its
  /// stage. Throws `DamagedBatch`, `std::system_error`, `AnsweredMoments::ReadError`.
  static std::optional<ReviewSession> resume(const Places& places, const Calendar& calendar);

  /// What may be shown before the answer: nothing that the system made of the moment.
  struct Blind {
    std::int64_t atMs = 0;
    std::int64_t frameMs = 0;  ///< the instant that the clip ends on
    std::optional<std::string> declaredTask = {}, frontmostApp = {}, windowTitle = {}, browserTitle = {};
  };
  /// What is shown after it.
  struct Reveal {
    std::optional<Layer1Answer> answer = {};
    std::string state = {};
    std::optional<std::string> reason = {};
    std::optional<double> confidence = {};
    std::optional<GateDecisionRecord> decision = {};
    std::vector<RampSampleSelector::Reason> stoodOutFor = {};
    std::optional<RampSampleSelector::Layer2Question> question = {};
  };
  struct Progress {
    std::size_t number = 0;  ///< of the current moment, from 1; behind the last one when all are done
    std::size_t total = 0, answered = 0, skipped = 0;
  };

  bool isFinished() const { return !current(); }
  std::optional<Blind> blind() const;    ///< absent when finished
  std::optional<Reveal> reveal() const;  ///< absent until the current moment is answered
  Progress progress() const;
  const std::optional<std::string>& starvationNotice() const { return batch_.notice; }
  RampSampleSelector::SamplingMode mode() const { return batch_.mode; }
  std::uint64_t seed() const { return batch_.seed; }

  // Called out of turn these throw `std::logic_error`.

  /// The blind answer. Throws `LabelsWriter::LabelsWriterError`.
  void answer(Layer1Answer given, const std::optional<std::string>& comment, std::int64_t asOfMs);
  /// Another answer once the verdict is known: a row of its own, marked as no evidence. Throws likewise.
  void revise(Layer1Answer given, const std::optional<std::string>& comment, std::int64_t asOfMs);
  /// Whether the sentence given for the verdict was right. The moment stays: the gate's question may follow. Throws `JSONLAppendError`, and
  /// `std::logic_error` also for a verdict without a sentence.
  void gradeReason(const ReasonLabelWriter::Judgement& judgement, std::int64_t asOfMs) const;
  /// The answer about the gate. Throws `GateLabelWriter::WriteError`, `JSONLAppendError`.
  void answerGate(const Layer2Answer& given, const std::optional<std::string>& note, std::int64_t asOfMs);
  /// On to the next moment: without an answer, or when the verdict has been seen.
  void next();

  /// Why the place in the review could not be kept although the answer was; absent when it was. A later start then finds the answer itself.
  const std::optional<std::string>& placeFailure() const { return placeFailure_; }

 private:
  const ReviewBatch::Item* current() const;
  const ReviewBatch::Item& currentAt(ReviewBatch::Stage stage) const;
  ReviewBatch::Item& currentAt(ReviewBatch::Stage stage);
  void submit(const ReviewBatch::Item& item, const RampLabelSubmission::Layer1& given) const;
  void moveTo(ReviewBatch::Item& item, ReviewBatch::Stage stage);
  void keepPlace();

  ReviewBatch batch_;
  Places places_;
  Calendar calendar_;
  std::optional<std::string> placeFailure_;
};

}  // namespace halvo
