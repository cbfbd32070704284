#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "AmbitudeCore/Folds/UserQuietWindow.h"

/// `halvo quiet`: a person's own order to be left alone. Each answers the exit status and prints its own words.
namespace halvo::QuietCommands {

/// "30m", "1h", "3h", "today", "until-i-say"; absent for anything else.
std::optional<UserQuietDuration> durationOf(const std::string& word);

int show();
int ask(UserQuietDuration duration, const std::optional<std::string>& reason);
int off();

/// "quiet until 16:00", "quiet until you say", "not quiet".
std::string describe(const std::optional<UserQuietWindow>& window, std::int64_t nowMs, const Calendar& calendar);

/// The same for this moment. Throws for an event log that can't be read.
std::string now();

}  // namespace halvo::QuietCommands
