#pragma once

#include <string>
#include <vector>

namespace halvo {

/// What the coach knows tomorrow: short texts that the gate and the coach read at every turn.
struct StandingMemory {
  std::vector<std::string> facts = {};
  std::vector<std::string> lessons = {};
  bool operator==(const StandingMemory&) const = default;
};

}  // namespace halvo
