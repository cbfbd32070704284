#pragma once

#include <filesystem>

/// Where programs lie.
namespace halvo::ExecutablePath {

/// This program's own file, links resolved. Read once, at the first call, so make that early: the system's answer changes when the file is
/// replaced or moved. Throws `std::filesystem::filesystem_error` where /proc is missing.
const std::filesystem::path& resolveSelf();

/// The folder that holds the program, where its siblings are.
std::filesystem::path siblingDirectory(const std::filesystem::path& of);

/// A file, or a link to one, that this process may run.
bool isExecutableFile(const std::filesystem::path& file);

}  // namespace halvo::ExecutablePath
