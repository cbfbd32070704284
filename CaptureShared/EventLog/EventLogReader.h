#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

namespace EventLogReader {
/// Absent unless the line is a JSON object with all five keys of their types.
std::optional<EventLogEvent> decode(std::string_view line);
/// The rows in file order; a line that does not decode is dropped.
std::vector<EventLogEvent> parse(std::string_view text);
/// Throws `std::system_error`.
std::vector<EventLogEvent> read(const std::filesystem::path& file);
}  // namespace EventLogReader

namespace ClassifierLogReader {
/// The rows sorted by `at` compared as text, equal ones in file order.
std::vector<ClassifierTick> parse(std::string_view text);
/// Throws `std::system_error`.
std::vector<ClassifierTick> read(const std::filesystem::path& file);
}  // namespace ClassifierLogReader

}  // namespace halvo
