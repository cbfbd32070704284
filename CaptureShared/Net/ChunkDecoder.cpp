#include "CaptureShared/Net/ChunkDecoder.h"

#include <algorithm>
#include <charconv>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Net/TransportText.h"

namespace halvo {
namespace {

constexpr std::size_t lineLimit = 16384;
constexpr std::size_t sizeDigits = 15;  // more could not be a size and would not fit 64 bits with room to spare

}  // namespace

std::size_t ChunkDecoder::feed(std::string_view bytes, const std::function<void(std::string_view)>& onBody) {
  std::size_t at = 0;
  while (at < bytes.size() && state_ != State::done) {
    switch (state_) {
      case State::size:
      case State::trailer: {
        const auto end = bytes.find('\n', at);
        const auto piece = bytes.substr(at, end == std::string_view::npos ? end : end - at);
        line_ += piece;
        if (line_.size() > lineLimit) throw TransportError(TransportText::badResponse("chunk line over 16384 bytes"));
        at += piece.size();
        if (end == std::string_view::npos) break;
        ++at;
        if (line_.ends_with('\r')) line_.pop_back();
        if (state_ == State::size)
          endSizeLine();
        else if (line_.empty())
          state_ = State::done;
        line_.clear();
        break;
      }
      case State::data: {
        const auto piece = bytes.substr(at, static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, bytes.size() - at)));
        at += piece.size();
        remaining_ -= piece.size();
        if (remaining_ == 0) state_ = State::carriageReturn;
        onBody(piece);
        break;
      }
      case State::carriageReturn:
      case State::lineFeed:
        if (bytes[at] != (state_ == State::carriageReturn ? '\r' : '\n'))
          throw TransportError(TransportText::badResponse("chunk not followed by CRLF"));
        state_ = state_ == State::carriageReturn ? State::lineFeed : State::size;
        ++at;
        break;
      case State::done:
        break;
    }
  }
  return at;
}

void ChunkDecoder::endSizeLine() {
  // An extension may follow the size behind a semicolon; it means nothing to us.
  const auto digits = Text::trimBlanksAndTabs(std::string_view(line_).substr(0, line_.find(';')));
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), remaining_, 16);
  if (digits.empty() || digits.size() > sizeDigits || error != std::errc() || end != digits.data() + digits.size())
    throw TransportError(TransportText::badResponse("bad chunk size: " + line_));
  state_ = remaining_ == 0 ? State::trailer : State::data;
}

}  // namespace halvo
