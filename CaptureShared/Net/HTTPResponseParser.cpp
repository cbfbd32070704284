#include "CaptureShared/Net/HTTPResponseParser.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/TransportText.h"

namespace halvo {
namespace {

[[noreturn]] void bad(std::string_view what, std::string_view line) {
  throw TransportError(TransportText::badResponse(fmt::format("{} {}", what, line)));
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The status of "HTTP/1.x NNN words".
std::optional<int> statusOf(std::string_view line) {
  if (!line.starts_with("HTTP/1.") || line.size() < 12 || !isDigit(line[7]) || line[8] != ' ') return std::nullopt;
  const auto digits = line.substr(9, 3);
  if (!std::all_of(digits.begin(), digits.end(), isDigit) || digits[0] == '0') return std::nullopt;
  if (line.size() > 12 && line[12] != ' ') return std::nullopt;
  return (digits[0] - '0') * 100 + (digits[1] - '0') * 10 + (digits[2] - '0');
}

}  // namespace

void HTTPResponseParser::feed(std::string_view bytes, const std::function<void(std::string_view)>& onBody) {
  while (!bytes.empty() && state_ != State::done) {
    switch (state_) {
      case State::statusLine:
      case State::headers: {
        const auto end = bytes.find('\n');
        const auto piece = bytes.substr(0, end);
        line_ += piece;
        // A server that is none of ours can send anything: nothing it sends may grow without bound.
        if (line_.size() > lineLimit) bad("header line over", fmt::format("{} bytes", lineLimit));
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (end == std::string_view::npos) break;
        if (line_.ends_with('\r')) line_.pop_back();
        endLine(std::exchange(line_, {}));
        break;
      }
      case State::chunkedBody:
        bytes.remove_prefix(chunks_.feed(bytes, onBody));
        if (chunks_.isComplete()) state_ = State::done;
        break;
      case State::sizedBody: {
        const auto piece = bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, bytes.size())));
        bytes.remove_prefix(piece.size());
        remaining_ -= piece.size();
        if (remaining_ == 0) state_ = State::done;
        onBody(piece);
        break;
      }
      case State::bodyToEnd:
        onBody(std::exchange(bytes, {}));
        break;
      case State::done:
        break;
    }
  }
}

void HTTPResponseParser::finish() {
  if (state_ == State::statusLine || state_ == State::headers)
    throw TransportError(TransportText::connectionLost("connection closed mid-header"));
  if (state_ == State::chunkedBody || state_ == State::sizedBody) throw TransportError(TransportText::connectionLost("connection closed"));
  state_ = State::done;
}

void HTTPResponseParser::endLine(std::string_view line) {
  if (state_ == State::statusLine) {
    const auto status = statusOf(line);
    if (!status) bad("bad status line:", line);
    head_.status = *status;
    state_ = State::headers;
    return;
  }
  if (line.empty()) {
    endHeaders();
    return;
  }
  const auto colon = line.find(':');
  const auto name = line.substr(0, colon);
  // A blank in the name is how a response smuggles a second header past one reader; a folded line begins with one.
  if (colon == std::string_view::npos || name.empty() || name.find_first_of(" \t") != std::string_view::npos) bad("bad header line:", line);
  if (head_.headers.size() >= headerLimit) bad("header lines over", fmt::format("{}", headerLimit));
  head_.headers.emplace_back(std::string(name), std::string(Text::trimBlanksAndTabs(line.substr(colon + 1))));
}

void HTTPResponseParser::endHeaders() {
  if (head_.status < 200) {
    head_ = {};
    state_ = State::statusLine;
    return;
  }
  if (head_.status == 204 || head_.status == 304) {
    state_ = State::done;
    return;
  }
  if (const auto encoding = head_.header("Transfer-Encoding")) {
    if (!Text::equalsIgnoringCase(*encoding, "chunked")) bad("bad header line: Transfer-Encoding:", *encoding);
    state_ = State::chunkedBody;
    return;
  }
  const auto length = head_.header("Content-Length");
  if (!length) {
    state_ = State::bodyToEnd;
    return;
  }
  const auto [end, error] = std::from_chars(length->data(), length->data() + length->size(), remaining_);
  if (length->empty() || error != std::errc() || end != length->data() + length->size()) bad("bad Content-Length:", *length);
  for (const auto& [name, value] : head_.headers)
    if (Text::equalsIgnoringCase(name, "Content-Length") && value != *length) bad("bad Content-Length:", value);
  state_ = remaining_ == 0 ? State::done : State::sizedBody;
}

}  // namespace halvo
