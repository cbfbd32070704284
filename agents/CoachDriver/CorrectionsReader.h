#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// What the person has taught, as it stands now: their own file, in which they can delete, else what the event log holds. A look at an
/// unchanged file costs one `stat`.
class CorrectionsReader {
 public:
  CorrectionsReader(std::filesystem::path file, LogSink log) : file_(std::move(file)), log_(std::move(log)) {}

  /// Never throws: a file that can't be read is told once, and what was read of it last goes on counting.
  std::vector<CoachCorrection> read(std::span<const EventLogEvent> events);

 private:
  std::filesystem::path file_;
  LogSink log_;
  std::optional<FileIdentity> seen_;
  std::optional<std::vector<CoachCorrection>> rows_;
  std::string told_;
};

}  // namespace halvo
