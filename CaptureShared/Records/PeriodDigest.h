#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/MemoryFact.h"

namespace halvo {

/// What one period of the past came to. Written once, never changed.
struct PeriodDigest {
  std::int64_t periodStartTsMs = 0, periodEndTsMs = 0, generatedAtTsMs = 0;  ///< milliseconds since the epoch
  std::string summary = {};
  std::vector<MemoryFact> facts = {};
  std::vector<std::string> lessons = {};
  bool salvaged = false;  ///< the model's reply could not be used: the period is done and empty

  /// Keys are the snake case of the fields.
  JSONValue encoded() const;
  /// Absent unless every key but `salvaged` is there with its type.
  static std::optional<PeriodDigest> decode(const JSONValue& value);
  bool operator==(const PeriodDigest&) const = default;
};

}  // namespace halvo
