#pragma once

#include <filesystem>

#include "CaptureShared/Foundation/Environment.h"

/// The fixed folders of one account. Pure: the home folder comes from the environment given.
namespace halvo::UserFolders {

/// HOME when it is an absolute path, else the account's entry in the user database.
std::filesystem::path home(const Environment& environment);
/// "Library/Application Support/AmbitCapture" under home.
std::filesystem::path supportDir(const Environment& environment);
/// XDG_CONFIG_HOME when it is an absolute path, else ".config" under home.
std::filesystem::path configDir(const Environment& environment);
/// "Library/Logs" under home.
std::filesystem::path logsRoot(const Environment& environment);

/// A private folder for short-lived files: $TMPDIR when it is ours and 0700, else /tmp/ambitude-<uid>, made 0700 and checked to be a real
/// folder of ours that nobody else can enter. Throws `std::runtime_error` when it is anything else.
std::filesystem::path systemTemp(const Environment& environment);

}  // namespace halvo::UserFolders
