#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// One row of `io-layer/events.jsonl`.
struct EventLogEvent {
  std::int64_t tsMs = 0;            ///< milliseconds since the epoch, the caller's clock
  std::string kind = "event";       ///< always "event" in rows of this system
  std::string type = {};            ///< what happened
  JSONValue detail = JSONObject{};  ///< the event's fields
  std::string source = "coach-core";

  /// The string at a key of `detail`; null when it is missing or anything else.
  const std::string* text(std::string_view key) const {
    const auto* found = detail.find(key);
    return found ? found->stringValue() : nullptr;
  }
  bool operator==(const EventLogEvent&) const = default;
};

}  // namespace halvo
