#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Recording/Retention/RetentionSettings.h"

/// `retention.json`, outside the data root: the setting stays when the root moves.
namespace halvo::RetentionSettingsStore {

namespace fs = std::filesystem;

/// In the support folder.
fs::path path(const Environment& environment);

/// A key that is missing or null has its default, and so has a number of hours below 0; `days` below 0 is no policy. Absent when the text is no
/// object or a key holds another type.
std::optional<RetentionSettings> decode(std::string_view text);
std::string encode(const RetentionSettings& settings);

/// A file that is missing, unreadable or can't be decoded reads as all defaults, which delete nothing. Never throws.
RetentionSettings read(const fs::path& from);
/// True when there is a file that `read` could make nothing of.
bool isDamaged(const fs::path& file);
/// Replaces the file, and makes its folder first. Throws `std::system_error`.
void write(const RetentionSettings& settings, const fs::path& to);

}  // namespace halvo::RetentionSettingsStore
