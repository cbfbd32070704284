#include "CaptureShared/Net/TransportText.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::TransportText {
namespace {

constexpr std::string_view timeoutMark = "NSURLErrorDomain Code=-1001";

std::string text(int code, std::string_view words, std::string_view detail) {
  auto out = fmt::format("Error Domain=NSURLErrorDomain Code={} \"{}\"", code, words);
  // A detail may quote what a server sent: one line of valid text, and never so much that a log fills with it.
  if (!detail.empty()) out += ": " + Text::capped(Text::newlinesToBlanks(Text::scrubbed(detail)), 200);
  return out;
}

}  // namespace

std::string timedOut(std::string_view detail) { return text(-1001, "The request timed out.", detail); }
std::string couldNotConnect(std::string_view detail) { return text(-1004, "Could not connect to the server.", detail); }
std::string connectionLost(std::string_view detail) { return text(-1005, "The network connection was lost.", detail); }
std::string badResponse(std::string_view detail) { return text(-1011, "The server returned a bad response.", detail); }

bool isTimeout(std::string_view text) { return text.find(timeoutMark) != std::string_view::npos; }

}  // namespace halvo::TransportText
