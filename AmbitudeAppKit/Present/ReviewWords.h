#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "AmbitudeCore/Review/ReviewScore.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "CaptureShared/Foundation/Calendar.h"

/// A review in words, the same in the terminal and in the window.
namespace halvo::ReviewWords {

using Layer1Answer = ReviewSession::Layer1Answer;
using Layer2Answer = ReviewSession::Layer2Answer;
using Judgement = ReasonLabelWriter::Judgement;

std::string name(Layer1Answer answer);
std::string name(const Layer2Answer& answer);
std::string name(const Judgement& judgement);

/// What may be answered, in the order in which it is offered.
std::vector<Layer2Answer> choices(const RampSampleSelector::Layer2Question& question);
const std::vector<Judgement>& judgements();

std::string when(std::int64_t ms, const Calendar& calendar);          ///< "2026-03-04 10:44:50"
std::string declared(const ReviewSession::Blind& moment);
std::string inFront(const ReviewSession::Blind& moment);              ///< the app, and its window's title
std::string verdict(const ReviewSession::Reveal& told);               ///< "not aligned (86 % sure): a video is playing"
/// What the gate decided, or that it was not asked; empty when there is nothing to tell.
std::string gate(const ReviewSession::Reveal& told, const Calendar& calendar);

/// The score as a table and the lines below it.
struct Score {
  static std::array<std::string, 6> headers();
  std::vector<std::array<std::string, 6>> rows = {};
  std::vector<std::string> lines = {};
  bool operator==(const Score&) const = default;
};
Score of(const ReviewScore::Score& score, ReviewScore::Evidence evidence);

}  // namespace halvo::ReviewWords
