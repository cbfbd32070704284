#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "CaptureShared/Records/EventLogEvent.h"

/// What a person is told of a memory that does not come about. Pure.
namespace halvo::ConsolidationHealthPresentation {

/// Two days of periods: one bad night is nobody's business yet.
inline constexpr std::int64_t periodsPendingBeforeOrdinaryUserNotice = 8;

struct Trouble {
  std::string reason = {};
  std::int64_t periodsPending = 0;
  bool isDegenerate = false;  ///< a memory was written, but the reply behind it was no use
  bool operator==(const Trouble&) const = default;
};
/// The newest failure or degenerate result; absent when a later memory replaced it (`regeneratedAtMs`) or there is none.
std::optional<Trouble> trouble(std::span<const EventLogEvent> events, std::optional<std::int64_t> regeneratedAtMs);

/// The notice; the technical reason is for developers alone. Absent for an ordinary user while the backlog is short.
std::optional<std::string> bubbleText(const Trouble& trouble, bool developerMode);

}  // namespace halvo::ConsolidationHealthPresentation
