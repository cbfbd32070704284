#include "CaptureShared/Recording/Location/DirectoryListingCache.h"

#include <algorithm>
#include <system_error>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo::FrameLocator {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t oldestMs = 30'000;
constexpr std::int64_t oldestUnknownMs = 1'000;  ///< where it can't be told whether the folder changed

std::optional<DirectoryListingCache::Entry> entryOf(const fs::path& file) {
  const auto name = file.filename().string();
  const auto stem = hourStem(name);
  if (!stem) return std::nullopt;
  struct statx facts {};
  if (::statx(AT_FDCWD, file.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_SIZE | STATX_BTIME, &facts) != 0) return std::nullopt;
  // Without its birth a file could be any of the hour's: nothing is better than a wrong frame.
  if (!(facts.stx_mask & STATX_BTIME) || !S_ISREG(facts.stx_mode)) return std::nullopt;
  return DirectoryListingCache::Entry{
      .hourPrefix = std::string(*stem),
      .url = file,
      .birthMs = static_cast<std::int64_t>(facts.stx_btime.tv_sec) * 1000 + facts.stx_btime.tv_nsec / 1'000'000,
      .size = facts.stx_mask & STATX_SIZE ? std::optional(static_cast<std::int64_t>(facts.stx_size)) : std::nullopt};
}

std::vector<DirectoryListingCache::Entry> entriesIn(const fs::path& folder) {
  std::vector<DirectoryListingCache::Entry> entries;
  std::error_code error;
  for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error))
    if (auto entry = entryOf(item->path())) entries.push_back(std::move(*entry));
  return entries;
}

std::optional<std::int64_t> modifiedAtNs(const fs::path& folder) {
  try {
    return FileIdentity::of(folder).mtimeNs;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<std::string_view> hourStem(std::string_view filename) {
  constexpr std::string_view extension = ".mkv";
  if (!filename.ends_with(extension)) return std::nullopt;
  const auto name = filename.substr(0, filename.size() - extension.size());
  const auto stem = name.substr(0, name.find(".part"));
  return stem.empty() ? std::nullopt : std::optional(stem);
}

DirectoryListingCache::Ops DirectoryListingCache::Ops::real() {
  return {.list = entriesIn, .modifiedAtNs = FrameLocator::modifiedAtNs, .nowMs = Clock::system().nowMs};
}

DirectoryListingCache& DirectoryListingCache::shared() {
  static DirectoryListingCache cache;
  return cache;
}

DirectoryListingCache::Listing DirectoryListingCache::entries(const fs::path& folder) {
  const auto now = ops_.nowMs();
  // Read before the folder is: what is added meanwhile shows as a change the next time.
  const auto modified = ops_.modifiedAtNs(folder);
  const auto kept = snapshots_.with([&](auto& snapshots) -> Listing {
    const auto found = snapshots.find(folder);
    if (found == snapshots.end()) return nullptr;
    const auto& snapshot = found->second;
    const auto age = now - snapshot.builtAtMs;
    if (age < 0 || age > oldestMs) return nullptr;
    const bool isKnown = modified && snapshot.dirModifiedAtNs;
    return (isKnown ? modified == snapshot.dirModifiedAtNs : age < oldestUnknownMs) ? snapshot.entries : nullptr;
  });
  if (kept) return kept;
  auto entries = ops_.list(folder);
  std::ranges::sort(entries, [](const Entry& a, const Entry& b) { return std::tie(a.hourPrefix, a.url) < std::tie(b.hourPrefix, b.url); });
  const auto built = std::make_shared<const std::vector<Entry>>(std::move(entries));
  snapshots_.with([&](auto& snapshots) { snapshots[folder] = {.entries = built, .dirModifiedAtNs = modified, .builtAtMs = now}; });
  return built;
}

}  // namespace halvo::FrameLocator
