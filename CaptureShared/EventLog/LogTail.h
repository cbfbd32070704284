#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

/// The last stretch of a log that may have years in it.
namespace halvo::LogTail {

/// The time of a row in milliseconds; absent for a line that does not decode.
using TimeOf = std::function<std::optional<std::int64_t>(std::string_view line)>;

/// Where to begin to read so that no row from `fromMs` on is missed: 0, or an offset just behind a newline. Rows lie in the order in which they
/// were written, so one with an earlier time ends the search; `slackMs` allows for writers whose clocks or turns differ. Probes back from the
/// end in steps that double, 64 KiB a step. Throws `std::system_error`; a missing file is ENOENT.
std::int64_t offsetOf(std::int64_t fromMs, const std::filesystem::path& file, const TimeOf& timeOf, std::int64_t slackMs = 3'600'000);

}  // namespace halvo::LogTail
