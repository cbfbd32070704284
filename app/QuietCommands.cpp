#include "app/QuietCommands.h"

#include <array>
#include <cstdio>
#include <system_error>
#include <vector>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Folds/CoachProjection.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::QuietCommands {

namespace {

/// A window that ends further away than this was asked for without an end.
constexpr std::int64_t endlessMs = 50LL * 365 * 86'400'000;

using CommandOutput::fail;

template <class F>
int withDataRoot(F&& command) {
  if (!DataPaths::isDataRootAvailable()) return fail(DataPaths::dataRootUnavailableReason());
  try {
    return std::forward<F>(command)(Clock::system().nowMs(), Calendar::local());
  } catch (const std::exception& error) {
    return fail(std::string("not recorded: ") + error.what());
  }
}

std::optional<UserQuietWindow> latest(std::int64_t nowMs) {
  auto reader = JSONLReaders::events(DataPaths::events(), [](EventLogEvent& event) {
    return event.type == EventType::userQuietRequested || event.type == EventType::userQuietCancelled;
  });
  try {
    const auto rows = match(
        reader.readFull(), [](Reset<EventLogEvent>&& all) { return std::move(all.rows); },
        [](Appended<EventLogEvent>&& some) { return std::move(some.rows); });
    return CoachProjection::latestUserQuietWindow(rows, nowMs);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
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

int show() {
  return withDataRoot([](std::int64_t nowMs, const Calendar& calendar) {
    std::printf("%s\n", describe(latest(nowMs), nowMs, calendar).c_str());
    return 0;
  });
}

int ask(UserQuietDuration duration, const std::optional<std::string>& reason) {
  return withDataRoot([&](std::int64_t nowMs, const Calendar& calendar) {
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
  return withDataRoot([](std::int64_t nowMs, const Calendar&) {
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
