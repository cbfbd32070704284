#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
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
/// What a person is told of a file that `read` could make nothing of; absent for any other, and for none.
std::optional<std::string> damage(const fs::path& file);
/// Replaces the file, and makes its folder first. Throws `std::system_error`.
void write(const RetentionSettings& settings, const fs::path& to);

/// To write a damaged file anew would lose what it holds: how far labels protect, and that nothing is to be deleted meanwhile.
struct Damaged : std::runtime_error {
  using std::runtime_error::runtime_error;
};
using Change = std::function<void(RetentionSettings&)>;
/// The only way to change settings that are there: one at a time, in whatever process. Writes nothing when `how` changes nothing. Answers
/// the settings as they are then. Throws `Damaged` and `std::system_error`, and then the file is as it was.
RetentionSettings change(const fs::path& file, const Change& how);

}  // namespace halvo::RetentionSettingsStore
