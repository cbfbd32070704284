#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// A person's grades of the coach's replies: `coach-feedback.jsonl` under the data root, and for a criterion the log around it, to be
/// replayed later.
namespace halvo::CoachFeedbackWriter {

enum class Kind { keep, fault, criterion, confirmation };
enum class Mode { mustContain, mustNotContain };

struct Keep {
  std::optional<std::string> note = {};
};
struct Fault {
  std::optional<std::string> note = {};
};
/// What any good reply here would have to hold, or must not.
struct Criterion {
  Mode mode = Mode::mustContain;
  std::string text = {};
  std::optional<std::string> note = {};
};
/// That this reply meets such a criterion.
struct Confirmation {
  Mode mode = Mode::mustContain;
  std::string text = {};
  std::optional<std::string> note = {};
};
using Feedback = std::variant<Keep, Fault, Criterion, Confirmation>;

/// One row. The keys on disk are the fields.
struct StoredFeedback {
  std::int64_t atMs = 0;         ///< of the coach message that it grades
  std::string createdAt = {};    ///< UTC ISO time with milliseconds
  Kind kind = Kind::keep;
  std::optional<Mode> mode = {};
  std::optional<std::string> text = {}, note = {};

  /// What tells it from every other row.
  std::string id() const { return std::to_string(atMs) + "@" + createdAt; }
  /// Throws `JSONEncodingError`.
  std::string encode() const;
  /// Absent without `atMs`, `createdAt` and a known `kind`.
  static std::optional<StoredFeedback> decode(std::string_view line);
  bool operator==(const StoredFeedback&) const = default;
};

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// The rows in file order; lines that do not decode are skipped. Throws `std::system_error`; no file is no rows.
std::vector<StoredFeedback> readAll(const std::filesystem::path& url);

struct Grade {
  Feedback feedback = {};
  std::int64_t atMs = 0;    ///< of the graded message
  std::int64_t asOfMs = 0;  ///< moved on by milliseconds while a row of the same message has that time
};
/// Appends a row. The failure in words, absent when it is kept; never throws.
std::optional<std::string> writeReportingFailure(const Grade& grade, const std::filesystem::path& url);
/// Whether it was kept.
bool write(const Grade& grade, const std::filesystem::path& url);

// The file is held against every other change through this header while these run. Both throw `RewriteError`, of the kind `notFound` when
// the row is gone; the file is then as it was.

/// The row gets another grade; what it grades and when it was made stay.
void update(const std::string& id, const Feedback& with, const std::filesystem::path& url);
/// Deletes the row (`delete` is no name in this language).
void erase(const std::string& id, const std::filesystem::path& url);

/// The log around a criterion.
struct Fixture {
  std::int64_t atMs = 0;
  std::vector<EventLogEvent> events = {};
  std::vector<ClassifierTick> ticks = {};
  std::string capturedAt = {};  ///< UTC ISO time with milliseconds
  bool operator==(const Fixture&) const = default;
};
inline constexpr std::int64_t fixtureReachMs = 24 * 3'600'000LL;  ///< a prompt reaches back no further

struct Surroundings {
  std::int64_t atMs = 0;  ///< of the graded message
  std::span<const EventLogEvent> events = {};
  std::span<const ClassifierTick> ticks = {};
  std::int64_t asOfMs = 0;
};
/// Writes what lies within `fixtureReachMs` before the message, and the message's own rows, as "turn-<atMs>.json" into `directory` (made when
/// missing), replacing an earlier one; answers the file. Throws `RewriteError`, `std::system_error`.
std::filesystem::path captureFixture(const Surroundings& around, const std::filesystem::path& directory);
std::filesystem::path fixturesDirectory(const std::filesystem::path& dataRoot);
/// Absent when it is no fixture. Throws `std::system_error`.
std::optional<Fixture> readFixture(const std::filesystem::path& file);

}  // namespace halvo::CoachFeedbackWriter

namespace halvo {
template <>
struct RawValues<CoachFeedbackWriter::Kind> {
  using Kind = CoachFeedbackWriter::Kind;
  static constexpr std::array table{std::pair{Kind::keep, "keep"}, std::pair{Kind::fault, "fault"},
                                    std::pair{Kind::criterion, "criterion"}, std::pair{Kind::confirmation, "confirmation"}};
};
template <>
struct RawValues<CoachFeedbackWriter::Mode> {
  using Mode = CoachFeedbackWriter::Mode;
  static constexpr std::array table{std::pair{Mode::mustContain, "must_contain"}, std::pair{Mode::mustNotContain, "must_not_contain"}};
};
}  // namespace halvo
