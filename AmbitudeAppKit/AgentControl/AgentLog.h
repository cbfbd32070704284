#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"

namespace halvo {

/// The end of an agent's log.
struct AgentLog {
  std::filesystem::path file = {};
  std::vector<std::string> lines = {};
  std::string trouble = {};  ///< why it can't be read; empty when it was

  /// At most `count` lines, out of the last 64 KB. Never throws.
  static AgentLog read(BackgroundAgent agent, std::size_t count = 40);
};

}  // namespace halvo
