#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/MemoryFact.h"
#include "CaptureShared/Records/MemoryThread.h"

namespace halvo {

/// What the coach knows tomorrow: regenerated from the digests, read by the gate and the coach at every turn.
struct StandingMemory {
  std::int64_t regeneratedAtTsMs = 0;  ///< milliseconds since the epoch; what it was made of was read at this moment
  std::int64_t digestCount = 0;        ///< how many digests went in
  std::vector<MemoryThread> threads = {};
  std::vector<std::string> lessons = {};
  std::vector<MemoryFact> facts = {};
  bool salvaged = false;  ///< the last reply could not be used and every candidate was kept unorganized
  std::optional<std::int64_t> seed = {};
  std::optional<std::string> salvageDetail = {};

  /// Keys are the snake case of the fields; absent ones are left out.
  JSONValue encoded() const;
  /// Absent unless every key but the last three is there with its type.
  static std::optional<StandingMemory> decode(const JSONValue& value);
  bool operator==(const StandingMemory&) const = default;
};

/// The other strategy's state: standing memory into which digests are folded as they come.
struct SequentialMemoryState {
  StandingMemory standingMemory = {};
  std::vector<std::int64_t> foldedPeriodStartsTsMs = {};

  JSONValue encoded() const;
  static std::optional<SequentialMemoryState> decode(const JSONValue& value);
  bool operator==(const SequentialMemoryState&) const = default;
};

}  // namespace halvo
