#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"

/// What a person does in a window, written to the present data root, where the other programs read it. Each answers why it could not be done, in
/// words for the person; absent when it was.
namespace halvo::PersonActions {

using Failure = std::optional<std::string>;

/// One line of typing: "write the essay until 5pm", "write the essay for 40 min", "break", "break until 3:15pm", "clear".
struct Typed {
  enum class Kind { nothing, declare, rest, clear };
  Kind kind = Kind::nothing;
  std::string task = {};
  std::optional<std::string> until = {};  ///< a clock time
  bool operator==(const Typed&) const = default;
};
/// "until" counts when a clock time ends the line, "for" when a length of time does; else they belong to the task.
Typed readTyped(const std::string& line, std::int64_t nowMs, const Calendar& calendar);

/// Declares, takes a break or clears, as it was typed.
Failure apply(const Typed& typed, std::int64_t nowMs);
/// Declares anew what stood before the declaration of `declaredMs`, with its end as far as that still lies ahead; clears when there was
/// nothing. Refuses when another came since.
Failure takeBackDeclaration(std::int64_t declaredMs, std::int64_t nowMs, const Calendar& calendar);
Failure quiet(UserQuietDuration duration, std::int64_t nowMs, const Calendar& calendar);
/// Ends the quiet that began at `requestedMs`.
Failure endQuiet(std::int64_t requestedMs, std::int64_t nowMs);
/// A blank text is nothing to say.
Failure say(const std::string& text);
enum class Dismissal {
  closed,   ///< by the person, which holds Lark back for a while
  answered  ///< the answer took its place, which holds nothing back
};
/// The conversation is no longer open.
Failure dismissConversation(std::int64_t nowMs, Dismissal how = Dismissal::closed);
/// Pauses the recording of the screen; without `untilMs` until the person resumes.
Failure pauseRecording(std::optional<std::int64_t> untilMs, std::int64_t nowMs);
Failure resumeRecording();
Failure recordIn(RecordingControls::Quality quality, std::int64_t nowMs);
/// Deletes the correction that was recorded at `atMs`.
Failure forgetCorrection(std::int64_t atMs);

}  // namespace halvo::PersonActions
