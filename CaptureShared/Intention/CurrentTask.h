#pragma once

#include <filesystem>
#include <optional>
#include <string>

/// The declared intention as one text: the event log's word, with the task file as a fallback.
namespace halvo::CurrentTask {

/// AMBITCHECK_TASK_FILE, else "~/.ambitude/current-task.txt".
std::filesystem::path path();

/// The log's body. Without a declaration in the log, the task file's text, but only while the data root is there and the file reads. A log
/// and a file that differ are told once on standard error, and the log wins.
std::optional<std::string> read();

}  // namespace halvo::CurrentTask
