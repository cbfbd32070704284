#include "app/QuietCommands.h"

#include <array>
#include <cstdio>
#include <vector>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeCore/Folds/CoachProjection.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::QuietCommands {

namespace {

/// A window that ends further away than this was asked for without an end.
constexpr std::int64_t endlessMs = 50LL * 365 * 86'400'000;

template <class F>
int rightNow(F&& command) {
  return CommandOutput::withDataRoot([&] { return std::forward<F>(command)(Clock::system().nowMs(), Calendar::local()); }, "not recorded: ");
}

std::optional<UserQuietWindow> latest(std::int64_t nowMs) {
  const auto rows = EventSearch::eventsThat(
      [](EventLogEvent& event) { return event.type == EventType::userQuietRequested || event.type == EventType::userQuietCancelled; },
      DataPaths::events());
  return CoachProjection::latestUserQuietWindow(rows, nowMs);
}

void record(const EventLogEvent& event) {
  DataPaths::ensureSubdirsExist();
  EventLogWriter::append(event, DataPaths::events(), "halvo");
}

}  // namespace

std::optional<UserQuietDuration> durationOf(const std::string& word) {
  static constexpr std::array words{std::pair{"30m", UserQuietDuration::thirtyMinutes}, std::pair{"1h", UserQuietDuration::oneHour},
                                    std::pair{"3h", UserQuietDuration::threeHours}, std::pair{"today", UserQuietDuration::restOfDay},
                                    std::pair{"until-i-say", UserQuietDuration::indefinitely}};
  for (const auto& [known, duration] : words)
    if (word == known) return duration;
  return std::nullopt;
}

std::string describe(const std::optional<UserQuietWindow>& window, std::int64_t nowMs, const Calendar& calendar) {
  if (!window || !window->isInForce(nowMs)) return "not quiet";
  const auto end = window->effectiveEndMs();
  const auto until = end - nowMs > endlessMs            ? std::string("you say")
                     : end - nowMs > 12 * 3'600'000LL ? calendar.monthDayHourMinute(end)
                                                        : calendar.hourMinute(end);
  return "quiet until " + until + (window->reason ? " (" + TerminalText::oneLine(*window->reason) + ")" : "");
}

std::string now() { return describe(latest(Clock::system().nowMs()), Clock::system().nowMs(), Calendar::local()); }

int show() {
  return rightNow([](std::int64_t nowMs, const Calendar& calendar) {
    std::printf("%s\n", describe(latest(nowMs), nowMs, calendar).c_str());
    return 0;
  });
}

int ask(UserQuietDuration duration, const std::optional<std::string>& reason) {
  return rightNow([&](std::int64_t nowMs, const Calendar& calendar) {
    const auto event = UserQuietRequestedEvent::make(
        {.untilMs = endMs(duration, nowMs, calendar),
         .reason = reason && !Text::isBlank(*reason) ? std::optional(Text::scrubbed(Text::trim(*reason))) : std::nullopt,
         .asOfMs = nowMs});
    record(event);
    std::printf("%s\n", describe(UserQuietWindow::latest(std::span(&event, 1), nowMs), nowMs, calendar).c_str());
    return 0;
  });
}

int off() {
  return rightNow([](std::int64_t nowMs, const Calendar&) {
    const auto window = latest(nowMs);
    if (!window || !window->isInForce(nowMs)) {
      std::puts("not quiet");
      return 0;
    }
    record(UserQuietCancelledEvent::make(window->requestedMs, nowMs));
    std::puts("quiet is over");
    return 0;
  });
}

}  // namespace halvo::QuietCommands
