#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

/// The person's own denylist. The programs take it from their environment alone, so it is kept where the user's service manager takes theirs
/// from; it holds from the next login on.
namespace halvo::OwnDenylist {

/// "environment.d/60-halvo.conf" in the user's configuration folder.
std::filesystem::path file(const Environment& environment);
/// The names that the file holds; absent without one.
std::optional<std::vector<std::string>> read(const Environment& environment);
/// Writes the file (0600); no names takes it away, and the built-in list is back. Throws `std::invalid_argument` for a name that the file can't hold (a
/// quote, backslash, dollar or comma in it), `std::system_error`.
void write(const std::vector<std::string>& names, const Environment& environment);
/// The names of a text with one on each line, or separated by commas.
std::vector<std::string> namesIn(const std::string& typed);

}  // namespace halvo::OwnDenylist
