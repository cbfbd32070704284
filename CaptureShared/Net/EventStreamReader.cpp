#include "CaptureShared/Net/EventStreamReader.h"

#include <utility>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Net/TransportText.h"

namespace halvo {
namespace {

constexpr std::size_t lineLimit = std::size_t{8} << 20;

}  // namespace

void EventStreamReader::feed(std::string_view bytes, const OnData& onData) {
  while (!done_ && !bytes.empty()) {
    const auto end = bytes.find('\n');
    const auto piece = bytes.substr(0, end);
    if (partial_.size() + piece.size() > lineLimit) throw TransportError(TransportText::badResponse("event line over 8388608 bytes"));
    if (end == std::string_view::npos) {
      partial_ += piece;
      return;
    }
    bytes.remove_prefix(end + 1);
    if (partial_.empty()) {
      endLine(piece, onData);
    } else {
      partial_ += piece;
      endLine(std::exchange(partial_, {}), onData);
    }
  }
}

void EventStreamReader::finish(const OnData& onData) { endLine(std::exchange(partial_, {}), onData); }

void EventStreamReader::endLine(std::string_view line, const OnData& onData) {
  constexpr std::string_view field = "data:";
  if (done_ || !line.starts_with(field)) return;
  const auto payload = Text::trim(line.substr(field.size()));
  if (payload == "[DONE]")
    done_ = true;
  else
    onData(payload);
}

}  // namespace halvo
