#include "AmbitudeAppKit/Live/LiveReply.h"

#include <system_error>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

constexpr std::string_view turnPrefix = "turn-";

std::int64_t timeOf(const std::string& turnID, std::int64_t otherwise) {
  if (!turnID.starts_with(turnPrefix)) return otherwise;
  return Text::parseInteger(std::string_view(turnID).substr(turnPrefix.size())).value_or(otherwise);
}

std::int64_t writtenMs(const std::filesystem::path& file) {
  try {
    return FileIdentity::of(file).mtimeNs / 1'000'000;
  } catch (const std::system_error&) {
    return 0;
  }
}

}  // namespace

std::optional<LiveReply::Shown> LiveReply::current(std::int64_t nowMs) {
  const auto& state = reader_.consume(stream_);
  if (!hasLooked_) {
    hasLooked_ = true;
    changedMs_ = writtenMs(stream_);
    if (state.done) settled_.insert(state.turnID);
  } else if (state.turnID != lastTurn_ || reader_.offset() != lastOffset_) {
    changedMs_ = nowMs;
  }
  lastTurn_ = state.turnID;
  lastOffset_ = reader_.offset();
  if (state.turnID.empty() || settled_.contains(state.turnID) || nowMs - changedMs_ > staleMs) return std::nullopt;
  return Shown{timeOf(state.turnID, nowMs), state.text, withThinking_ ? state.thinking : std::string()};
}

std::string LiveReply::look(std::int64_t nowMs, const Calendar& calendar) {
  const auto reply = current(nowMs);
  if (!reply) return {};
  const LiveLog::Line line{reply->tsMs, LiveLog::Kind::coach, TerminalText::oneLine(reply->text), TerminalText::oneLine(reply->thinking)};
  auto shown = LiveLog::renderThinking(line, calendar);
  if (!line.text.empty()) shown += (shown.empty() ? "" : "\n") + LiveLog::render(line, calendar);
  return shown;
}

void LiveReply::settle(const LiveLog::Line& line) {
  // A gate's decision has the time of the turn that comes of it.
  if (line.kind != LiveLog::Kind::gate && line.kind != LiveLog::Kind::verdict) settle(line.tsMs);
}

void LiveReply::settle(std::int64_t tsMs) {
  if (settled_.size() > 1000) settled_.erase(settled_.begin());
  settled_.insert(CoachStream::turnID(tsMs));
}

}  // namespace halvo
