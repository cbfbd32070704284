#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "AmbitudeCore/Coach/CoachStream.h"
#include "CaptureShared/EventLog/LineSplitter.h"

namespace halvo {

/// Follows the stream file while a reply is written: each look reads what is new, and of a file that changed its first line.
class CoachStreamReader {
 public:
  static constexpr double pollSec = 0.2;  ///< as fast as a person reads along

  /// What the reply has come to. A file that is shorter than what was read, is another file, or begins with another turn was begun anew, so
  /// it is read from the top. An unfinished last line waits for its end; a line that does not decode is skipped. No file: an empty state.
  /// A file that can't be read leaves the state as it was.
  const CoachStreamState& consume(const std::filesystem::path& at);
  const CoachStreamState& state() const { return state_; }

  std::uint64_t offset() const { return offset_; }        ///< bytes of the file that were read
  std::uint64_t bytesRead() const { return bytesRead_; }  ///< in all, looks at the first line included

 private:
  void restart();
  bool wasBegunAnew(const FileHandle& file);
  std::string readAt(const FileHandle& file, std::uint64_t from, std::uint64_t size);

  std::uint64_t offset_ = 0, bytesRead_ = 0;
  LineSplitter pending_;
  CoachStreamState state_;
  std::optional<FileIdentity> seen_;
};

}  // namespace halvo
