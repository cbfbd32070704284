#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace halvo {

/// Reads the "data:" lines of an event stream. Pure: an event may span any number of pieces, and a piece may hold any number of events.
/// Comments (":" lines), other fields and blank lines count for nothing; behind "[DONE]" nothing counts.
class EventStreamReader {
 public:
  using OnData = std::function<void(std::string_view payload)>;

  /// Hands over the trimmed payload of every data line that `bytes` completes. Throws `TransportError` with a bad-response text for a line
  /// over 8 MiB.
  void feed(std::string_view bytes, const OnData& onData);
  /// The stream has ended: a last line without its newline counts too.
  void finish(const OnData& onData);

  /// "[DONE]" was read.
  bool isDone() const { return done_; }

 private:
  void endLine(std::string_view line, const OnData& onData);

  std::string partial_;
  bool done_ = false;
};

}  // namespace halvo
