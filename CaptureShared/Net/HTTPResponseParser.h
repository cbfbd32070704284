#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "CaptureShared/Net/ChunkDecoder.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// Reads one HTTP/1.1 response. Pure: the same response wherever the input happens to be cut.
class HTTPResponseParser {
 public:
  /// Longest status or header line, and the most header lines.
  static constexpr std::size_t lineLimit = 16384;
  static constexpr std::size_t headerLimit = 200;

  /// Body bytes go to `onBody` at once. Interim (1xx) answers are read over; bytes behind the end of the response are ignored. Throws
  /// `TransportError`: "bad status line:", "bad header line:", "header line over 16384 bytes", "bad Content-Length:", a bad chunk.
  void feed(std::string_view bytes, const std::function<void(std::string_view)>& onBody);

  /// The stream has ended. Throws `TransportError` ("connection closed mid-header", "connection closed") when the response has not.
  void finish();

  bool headComplete() const { return state_ != State::statusLine && state_ != State::headers; }
  bool isComplete() const { return state_ == State::done; }

  /// Status and headers; its body stays empty.
  const HTTPResponse& head() const { return head_; }

 private:
  enum class State { statusLine, headers, chunkedBody, sizedBody, bodyToEnd, done };

  void endLine(std::string_view line);
  void endHeaders();

  State state_ = State::statusLine;
  HTTPResponse head_;
  std::string line_;
  std::uint64_t remaining_ = 0;
  ChunkDecoder chunks_;
};

}  // namespace halvo
