#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace halvo {

/// Undoes "Transfer-Encoding: chunked". Pure: bytes in, bytes out, the same wherever the input happens to be cut.
class ChunkDecoder {
 public:
  /// Decodes what `bytes` completes and hands it to `onBody` at once; answers how many bytes it took, fewer than given only when the
  /// last chunk and its trailer lie behind it. Throws `TransportError` with a bad-response text: "bad chunk size:" for a size that is
  /// no hexadecimal number of at most 15 digits, "chunk not followed by CRLF", or a size or trailer line over 16 KiB.
  std::size_t feed(std::string_view bytes, const std::function<void(std::string_view)>& onBody);

  /// The last chunk and its trailer were read.
  bool isComplete() const { return state_ == State::done; }

 private:
  enum class State { size, data, carriageReturn, lineFeed, trailer, done };

  void endSizeLine();

  State state_ = State::size;
  std::string line_;             // a size or trailer line that is not complete yet
  std::uint64_t remaining_ = 0;  // bytes left of the present chunk
};

}  // namespace halvo
