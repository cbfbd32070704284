#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// One line of `io-layer/coach-stream.jsonl`: a piece of a reply as it is written.
struct CoachStreamDelta {
  std::string turnID = {};         ///< the turn it belongs to
  std::string text = {};           ///< reply text to add
  std::string thinking = {};       ///< reasoning text to add
  bool reset = false;              ///< clears the reply text first
  bool resetThinking = false;      ///< clears the reasoning text first
  bool done = false;               ///< the turn has ended

  /// One line of JSON without a newline. Bytes that are not UTF-8 become U+FFFD.
  std::string encode() const;
  /// Absent unless it is a JSON object with a text `turn_id`; a field that is missing or of another type is as above.
  static std::optional<CoachStreamDelta> decode(std::string_view line);
  bool operator==(const CoachStreamDelta&) const = default;
};

/// What a turn's deltas have come to.
struct CoachStreamState {
  std::string turnID = {};  ///< empty: no turn yet
  std::string text = {}, thinking = {};
  bool done = false;

  /// A delta of another turn starts anew.
  void add(const CoachStreamDelta& delta);
  bool operator==(const CoachStreamState&) const = default;
};

/// The reply as it is written, for whoever watches. The file holds one turn and is wiped by the next; the record of a reply is its event.
namespace CoachStream {
std::filesystem::path url(const std::filesystem::path& dataRoot);
CoachStreamState fold(std::span<const CoachStreamDelta> deltas);
/// The whole file folded; empty when there is none or it can't be read. Lines that do not decode are skipped.
CoachStreamState read(const std::filesystem::path& at);
/// The `turn_id` of the turn whose rows have the time `asOfMs`.
std::string turnID(std::int64_t asOfMs);
}  // namespace CoachStream

/// Writes one turn's stream. A failure here never fails the turn: the words still come as an event.
class CoachStreamWriter {
 public:
  /// Wipes the last turn's stream. Throws `std::system_error`.
  CoachStreamWriter(const std::filesystem::path& file, std::string turnID);
  /// One line, one write, under this writer's own `turnID`. Throws `std::system_error`.
  void append(CoachStreamDelta delta);
  void finish() { append({.done = true}); }

 private:
  FileHandle file_;
  std::string turnID_;
};

}  // namespace halvo
