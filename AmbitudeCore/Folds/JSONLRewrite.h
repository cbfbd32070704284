#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Changing rows of a small file of JSON lines. Whoever calls it keeps other writers out meanwhile.
namespace halvo::JSONLRewrite {

/// What becomes of a line: itself, other bytes, or nothing.
using Edit = std::function<std::optional<std::string>(std::string_view line)>;

/// Passes every line through `edit`, also one that is no row or lacks its newline: what is not understood is kept. Writes only when a line
/// changed, through a temporary file and one rename; answers how many did. Throws `RewriteError`, and `std::system_error` when the file
/// can't be read. `scratch`, when given, is the temporary file's name, in the same folder.
std::size_t apply(const std::filesystem::path& file, const Edit& edit, const std::filesystem::path& scratch = {});

/// Replaces the whole file in the same way. Throws `RewriteError`.
void replace(const std::filesystem::path& file, std::string_view bytes, const std::filesystem::path& scratch = {});

}  // namespace halvo::JSONLRewrite
