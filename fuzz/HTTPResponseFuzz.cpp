#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Net/EventStreamReader.h"
#include "CaptureShared/Net/HTTPResponseParser.h"

namespace {

struct Reading {
  int status = 0;
  bool complete = false;
  std::string body = {};
  std::vector<std::string> events = {};
  std::string error = {};
  bool operator==(const Reading&) const = default;
};

Reading read(std::string_view bytes, std::size_t pieceSize) {
  Reading reading;
  halvo::HTTPResponseParser parser;
  halvo::EventStreamReader events;
  const auto onData = [&](std::string_view payload) { reading.events.emplace_back(payload); };
  try {
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize)
      parser.feed(bytes.substr(at, pieceSize), [&](std::string_view piece) {
        reading.body += piece;
        events.feed(piece, onData);
      });
    parser.finish();
    events.finish(onData);
  } catch (const halvo::TransportError& error) {
    reading.error = error.what();
  }
  reading.status = parser.head().status;
  reading.complete = parser.isComplete();
  return reading;
}

}  // namespace

/// A response, its body and its events are the same wherever a read happened to end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto whole = read(bytes, size + 1);
  for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{3}, size / 2 + 1})
    if (read(bytes, pieceSize) != whole) std::abort();
  return 0;
}
