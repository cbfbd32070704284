#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"

/// The declaration in force, read from the end of the event log.
namespace halvo::EventLog {

/// "io-layer/events.jsonl" under the data root.
std::filesystem::path path();

/// A declaration's row as the text of the task file: "Task:", "Declared:", and "Estimate: until" and "Why:" when there are any. A cleared
/// declaration is the empty text; absent for any other row.
std::optional<std::string> taskFileBody(std::string_view type, const std::optional<JSONObject>& detail, std::int64_t tsMs, const Calendar& calendar);

/// The body of the newest `task_declared` or `task_cleared` row; the empty text after a clear, absent when there is no such row or the log can't be
/// read. A poll of an unchanged log costs one stat. Thread-safe.
std::optional<std::string> read(const std::filesystem::path& file = path());

}  // namespace halvo::EventLog
