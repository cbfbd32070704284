#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The `coach_correction_recorded` event: what someone told the coach about itself, as it enters the log.
namespace CoachCorrectionRecordedEvent {
struct Correction {
  std::string text = {};
  std::optional<CoachCorrection::Scope> scope = {};  ///< absent: both
  CoachCorrection::Lasts lasts = CoachCorrection::Lasts::untilChanged;
  std::int64_t asOfMs = 0;
};
/// Keys without a value (no scope, no end) are left out.
EventLogEvent make(const Correction& correction, const Calendar& calendar);
}  // namespace CoachCorrectionRecordedEvent

/// What the user has told the system about how it behaves: `coach-corrections.jsonl`. Several processes write it, so every change is made
/// under the lock of `coach-corrections.jsonl.lock`.
namespace CoachCorrectionsLog {

/// The lock could not be had, so nothing was changed.
class LockError : public std::runtime_error {
 public:
  enum class Kind { openFailed, lockFailed };
  LockError(Kind kind, int code);
  Kind kind() const { return kind_; }
  int code() const { return code_; }  ///< errno; of a lock that another process would not give back, EWOULDBLOCK

 private:
  Kind kind_;
  int code_;
};
inline constexpr double lockWaitSec = 2;  ///< a change takes milliseconds: whoever holds the lock longer hangs

/// "coach-corrections.jsonl" directly under the data root.
std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// Its rows, oldest first; lines that are no rows are skipped. Throws `std::system_error`, also when the file is missing.
std::vector<CoachCorrection> readAll(const std::filesystem::path& url);
/// Those of `readAll` that the nightly pass has not taken in. Throws as `readAll`.
std::vector<CoachCorrection> pending(const std::filesystem::path& url);
/// The corrections that the event log holds, oldest first, so that nothing is lost when their own file is gone. A blank text is skipped. A
/// correction that was meant for a limited time but carries no end gets the shortest one, three hours, and never becomes a standing one.
/// Of two that were said at one moment the later row counts as said a millisecond later: the time is the identity.
std::vector<CoachCorrection> fromEvents(std::span<const EventLogEvent> events);
/// Those said at or before a moment that still apply at it.
std::vector<CoachCorrection> inForce(std::vector<CoachCorrection> corrections, std::int64_t asOfMs);
/// The same of `readAll`. Throws as that.
std::vector<CoachCorrection> inForce(const std::filesystem::path& url, std::int64_t asOfMs);

// Each change throws `LockError`, and what is told beside it; the file is then as it was.

/// Appends a row and answers its `atMs`: a taken one moves on to the next free millisecond. Throws `JSONLAppendError`, `JSONEncodingError`.
std::int64_t write(CoachCorrection correction, const std::filesystem::path& url);
/// Replaces all rows. Throws `RewriteError`.
void rewrite(const std::vector<CoachCorrection>& corrections, const std::filesystem::path& url);
/// Makes the file from these rows when there is none; whether it did. Throws `RewriteError`.
bool restore(const std::vector<CoachCorrection>& corrections, const std::filesystem::path& url);
/// Marks the rows of these times as taken in, and keeps everything else in the file, rows it does not understand among it; answers how many
/// were marked. Throws `RewriteError`, and `std::system_error` when the file can't be read.
std::size_t markFolded(std::span<const std::int64_t> atMsValues, std::int64_t foldedAtMs, const std::filesystem::path& url);
/// Deletes one row (`delete` is no name in this language); false, and nothing is changed, when there is none of that time. Throws as `markFolded`.
bool erase(std::int64_t atMs, const std::filesystem::path& url);

}  // namespace CoachCorrectionsLog
}  // namespace halvo
