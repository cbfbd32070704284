#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

/// `memory-wipes.jsonl`: the moments before which everything was declared forgotten. No file is deleted by it.
namespace halvo::MemoryWipeLog {

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// Appends {"at_ms": atMs}. Throws `JSONLAppendError`.
void request(std::int64_t atMs, const std::filesystem::path& url);
/// The largest `at_ms`; absent without one. A line that is no such row is skipped, as a killed writer leaves one. Throws
/// `std::system_error` for a file that is there and can't be read: what was to be forgotten must not come back because of it.
std::optional<std::int64_t> latestAtMs(const std::filesystem::path& url);

}  // namespace halvo::MemoryWipeLog
