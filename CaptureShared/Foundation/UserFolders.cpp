#include "CaptureShared/Foundation/UserFolders.h"

#include <stdexcept>

#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo::UserFolders {

namespace {

/// A real folder (not a link to one) of ours that nobody else can enter.
bool isPrivateFolder(const std::filesystem::path& folder) {
  struct stat status {};
  return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}

}  // namespace

std::filesystem::path home(const Environment& environment) {
  if (const auto home = value(environment, "HOME"); home && home->starts_with('/')) return *home;
  if (const auto* entry = ::getpwuid(::geteuid()); entry && entry->pw_dir && *entry->pw_dir) return entry->pw_dir;
  return "/";
}

std::filesystem::path supportDir(const Environment& environment) { return home(environment) / "Library/Application Support/AmbitCapture"; }
std::filesystem::path configDir(const Environment& environment) {
  if (const auto named = value(environment, "XDG_CONFIG_HOME"); named && named->starts_with('/')) return *named;
  return home(environment) / ".config";
}
std::filesystem::path logsRoot(const Environment& environment) { return home(environment) / "Library/Logs"; }

std::filesystem::path systemTemp(const Environment& environment) {
  if (const auto given = value(environment, "TMPDIR"); given && given->starts_with('/') && isPrivateFolder(*given)) return *given;
  const std::filesystem::path folder = fmt::format("/tmp/ambitude-{}", ::geteuid());
  ::mkdir(folder.c_str(), 0700);
  if (!isPrivateFolder(folder)) throw std::runtime_error(folder.string() + " is not a private folder of this account");
  return folder;
}

}  // namespace halvo::UserFolders
