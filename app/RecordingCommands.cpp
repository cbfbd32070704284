#include "app/RecordingCommands.h"

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/RecordingCard.h"
#include "AmbitudeAppKit/Stores/PersonActions.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::RecordingCommands {

namespace {

using CommandOutput::fail;
using CommandOutput::print;
using Quality = RecordingControls::Quality;

std::int64_t now() { return Clock::system().nowMs(); }

std::string describe(Quality quality) {
  switch (quality) {
    case Quality::full: return "full, as large as the display";
    case Quality::compact: return "compact, at most " + std::to_string(RecordingControls::compactWidth) + " pixels wide";
  }
  return {};
}

/// Tells what came of a change: the state as it is on the disk by now.
int told(const PersonActions::Failure& failure) { return failure ? fail(*failure) : show(); }

int number(const std::optional<std::string_view>& digits) { return digits ? static_cast<int>(Text::parseInteger(*digits).value_or(0)) : 0; }

}  // namespace

std::optional<std::int64_t> pauseEnd(std::string_view length, std::int64_t nowMs, const Calendar& calendar) {
  static const Regex lasting(R"(^(?=.)(?:(\d{1,3})h)?(?:(\d{1,4})m)?$)");
  static const Regex clock(R"(^until (\d{1,2})(?::(\d{2}))?(am|pm)?$)", Regex::Flag::caseless);
  if (const auto found = lasting.find(length)) {
    const auto minutes = number(found->text(length, 1)) * 60LL + number(found->text(length, 2));
    return minutes > 0 ? std::optional(nowMs + minutes * 60'000) : std::nullopt;
  }
  const auto found = clock.find(length);
  if (!found) return std::nullopt;
  int hour = number(found->text(length, 1));
  const int minute = number(found->text(length, 2));
  const auto half = found->text(length, 3);
  if (minute > 59 || (half ? hour < 1 || hour > 12 : hour > 23 || !found->text(length, 2))) return std::nullopt;
  if (half) hour = hour % 12 + (Text::equalsIgnoringCase(*half, "pm") ? 12 : 0);
  const auto on = [&](const Calendar::Fields& day) { return calendar.instant(day.year, day.month, day.day, hour, minute); };
  const auto today = calendar.fields(nowMs);
  const auto end = on(today);
  return end > nowMs ? end : on(calendar.fields(calendar.instant(today.year, today.month, today.day, 12) + 24 * 3'600'000));
}

int show() {
  return CommandOutput::withDataRoot([] {
    const auto card = RecordingCard::read(DataPaths::dataRoot(), now(), Calendar::local());
    print(TerminalText::oneLine(card.line));
    print("quality: " + describe(card.quality));
    if (card.isPaused) print("what is in front is still noted and judged; no picture of it is kept");
    return 0;
  });
}

int pause(const std::string& length) {
  const auto nowMs = now();
  const auto until = pauseEnd(length, nowMs, Calendar::local());
  if (!until && !Text::isBlank(length))
    return fail("\"" + TerminalText::oneLine(length) + "\" is no length of time: say 15m, 2h or until 16:30, or nothing for as long as you like");
  return told(PersonActions::pauseRecording(until, nowMs));
}

int resume() { return told(PersonActions::resumeRecording()); }

int choose(const std::string& quality) {
  const auto wanted = fromRawValue<Quality>(quality);
  return wanted ? told(PersonActions::recordIn(*wanted, now())) : fail("the quality is full or compact");
}

}  // namespace halvo::RecordingCommands
