#pragma once

#include <filesystem>
#include <string>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// The reply as it is written, for whoever watches: `io-layer/coach-stream.jsonl`. It holds one turn and is wiped by the next; the record
/// of a reply is its event.
namespace CoachStream {
std::filesystem::path url(const std::filesystem::path& dataRoot);
}

/// Writes one turn's stream. A failure here never fails the turn: the words still come as an event.
class CoachStreamWriter {
 public:
  struct Delta {
    std::string text = {}, thinking = {};
    bool reset = false, resetThinking = false, done = false;
  };

  /// Wipes the last turn's stream. Throws `std::system_error`.
  CoachStreamWriter(const std::filesystem::path& file, std::string turnID);
  /// One line, one write. Throws `std::system_error`.
  void append(const Delta& delta);
  void finish() { append({.done = true}); }

 private:
  FileHandle file_;
  std::string turnID_;
};

}  // namespace halvo
