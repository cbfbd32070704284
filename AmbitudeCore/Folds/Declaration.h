#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// What someone said they mean to do, as a `task_declared` event holds it.
struct Declaration {
  std::int64_t tsMs = 0;
  std::string notes = {};                        ///< trimmed, never empty
  std::optional<int> horizonMinutes = {};        ///< the minutes they gave themselves
  std::optional<std::string> legacyUntil = {};   ///< an end in their own words

  /// Absent for another type of event and for a text that is blank. "notes" is preferred over "task".
  static std::optional<Declaration> decode(const EventLogEvent& event);
  /// The end of the time they gave themselves.
  std::optional<std::int64_t> endMs() const;

  bool operator==(const Declaration&) const = default;
};

/// A stated intention with the words the coach recorded for it, as long as nothing has replaced or cleared it.
struct Commitment {
  std::string notes = {};
  std::int64_t declaredAtMs = 0;
  std::optional<int> horizonMinutes = {};

  std::optional<std::int64_t> endMs() const;
  bool operator==(const Commitment&) const = default;
};

/// The declared intention as the log tells it.
namespace LatestDeclaration {

/// The newest `task_declared` or `task_cleared` at or before a moment; null when there is none.
const EventLogEvent* event(std::span<const EventLogEvent> events, std::int64_t asOfMs);
/// The declaration in force; absent when the newest of the two is a clear or a blank text.
std::optional<Declaration> inForce(std::span<const EventLogEvent> events, std::int64_t asOfMs);
/// The commitment in force. It reads "notes" alone, so a declaration made without the coach's tool is none.
std::optional<Commitment> commitment(std::span<const EventLogEvent> events, std::int64_t asOfMs);

}  // namespace LatestDeclaration
}  // namespace halvo
