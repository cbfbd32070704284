#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// Parsed times of judgment rows, remembered for all readers of a process: the same few thousand texts are asked for at every poll.
namespace halvo::DateParseMemo {

/// Milliseconds of an ISO 8601 text, absent when it is none. Thread-safe; the table is emptied when it reaches 1,048,576 entries.
std::optional<std::int64_t> milliseconds(std::string_view text);

}  // namespace halvo::DateParseMemo
