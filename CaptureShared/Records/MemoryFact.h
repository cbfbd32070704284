#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// `asserted`: the person said it. `inferred`: concluded from a pattern.
enum class MemoryFactProvenance { asserted, inferred };
template <>
struct RawValues<MemoryFactProvenance> {
  static constexpr std::array table{std::pair{MemoryFactProvenance::asserted, "asserted"},
                                    std::pair{MemoryFactProvenance::inferred, "inferred"}};
};

/// A claim about the person or their world.
struct MemoryFact {
  std::string text = {};
  MemoryFactProvenance provenance = MemoryFactProvenance::inferred;
  std::vector<std::int64_t> sourceEventTsMs = {};  ///< times of the events it traces to
  bool operator==(const MemoryFact&) const = default;
};

}  // namespace halvo
