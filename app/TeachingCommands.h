#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "AmbitudeCore/Coach/CoachFeedbackWriter.h"

/// What the person has taught: `halvo corrections`, `halvo notes`, `halvo feedback`. Each answers the exit status and prints its own words.
namespace halvo::TeachingCommands {

/// Each with the number by which it can be deleted, how long it holds and what it is about.
int corrections();
int deleteCorrection(std::int64_t atMs);

/// The standing notes.
int notes();
/// `whom` is "gate", "coach" or "classifier". Without `text` it is read from the standard input to its end; a blank one takes the note back.
int setNote(const std::string& whom, const std::optional<std::string>& text);

/// Lark's last reply and its grades.
int feedback();
/// Grades Lark's last reply; a criterion also keeps the log around it.
int grade(const CoachFeedbackWriter::Feedback& feedback);
int deleteFeedback(const std::string& id);

}  // namespace halvo::TeachingCommands
