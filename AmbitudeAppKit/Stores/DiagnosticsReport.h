#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgentState.h"

/// What a person may hand to someone who helps them. It is built from an allow-list: a log line goes in when its whole shape is known to hold
/// counts, times and names of ours, and nothing that came from a screen, a conversation or a file of theirs. Every other line is counted and left out.
namespace halvo::DiagnosticsReport {

/// Whether a line's whole shape is on the list.
bool isMechanical(std::string_view line);

struct Log {
  std::string name;  ///< "CoachDriver.log"
  std::string text;
};
struct Facts {
  std::string version, system;        ///< "Linux 6.1.0, 8 GB of memory"
  std::vector<std::string> programs;  ///< a line each, of words of ours
  std::string writtenAt;              ///< UTC
};
/// "Capture: running", in the report's own language.
std::vector<std::string> programs(std::span<const BackgroundAgentState> states);
/// The report's text: the facts, then of each log its last `linesPerLog` mechanical lines and how many were left out.
std::string render(const Facts& facts, std::span<const Log> logs, std::size_t linesPerLog = 60);

/// The logs of our programs, each from its last 256 KiB. A log that can't be read is left out.
std::vector<Log> logsIn(const std::filesystem::path& logsFolder);

}  // namespace halvo::DiagnosticsReport
