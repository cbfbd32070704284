#include "AmbitudeCore/Memory/MemoryStore.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace fs = std::filesystem;

MemoryStoreError MemoryStoreError::digestAlreadyExists(std::int64_t periodStartTsMs) {
  return {Kind::digestAlreadyExists, fmt::format("the period that starts at {} has its digest already", periodStartTsMs)};
}
MemoryStoreError MemoryStoreError::unreadable(const fs::path& file) {
  return {Kind::unreadable, file.string() + " is damaged: it is not a memory file that this build can read"};
}

namespace MemoryStore {

namespace {

constexpr std::string_view standingName = "standing-memory.json", sequentialName = "standing-memory.sequential.json";
constexpr std::string_view digestExtension = ".json";

template <class T>
T decoded(const fs::path& file, std::string_view bytes) {
  const auto value = JSONValue::parse(bytes);
  auto row = value ? T::decode(*value) : std::nullopt;
  if (!row) throw MemoryStoreError::unreadable(file);
  return std::move(*row);
}

template <class T>
std::optional<T> readIfThere(const fs::path& file) {
  std::string bytes;
  try {
    bytes = readFile(file);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
  return decoded<T>(file, bytes);
}

void write(const fs::path& file, const JSONValue& value) {
  makePrivateFolder(file.parent_path());
  writeFileAtomically(file, value.dumpPretty() + "\n");
}

bool isDigits(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

/// A name of ours with more behind it: nobody but a writer of this store makes such a file.
bool isScrap(std::string_view name, bool isDigest) {
  if (!isDigest) {
    const auto behind = [&](std::string_view own) { return name.starts_with(own) && name.substr(own.size()).starts_with('.'); };
    return behind(standingName) || behind(sequentialName);
  }
  const auto at = name.find(digestExtension);
  return at != std::string_view::npos && isDigits(name.substr(0, at)) && name.size() > at + digestExtension.size();
}

void removeScrapsIn(const fs::path& folder, bool isDigest) {
  std::error_code error;
  for (fs::directory_iterator item(folder, error), end; !error && item != end; item.increment(error)) {
    std::error_code ignored;
    if (isScrap(item->path().filename().string(), isDigest) && item->symlink_status(ignored).type() == fs::file_type::regular)
      fs::remove(item->path(), ignored);
  }
}

}  // namespace

fs::path folder(const fs::path& dataRoot) { return dataRoot / "memory"; }
fs::path digestsFolder(const fs::path& dataRoot) { return folder(dataRoot) / "period-digests"; }
fs::path standingURL(const fs::path& dataRoot) { return folder(dataRoot) / standingName; }
fs::path sequentialURL(const fs::path& dataRoot) { return folder(dataRoot) / sequentialName; }
fs::path digestURL(std::int64_t periodStartTsMs, const fs::path& dataRoot) {
  return digestsFolder(dataRoot) / fmt::format("{}{}", periodStartTsMs, digestExtension);
}

std::vector<PeriodDigest> readAllDigests(const fs::path& dataRoot) {
  std::vector<PeriodDigest> digests;
  std::error_code error;
  fs::directory_iterator item(digestsFolder(dataRoot), error);
  if (error == std::errc::no_such_file_or_directory) return digests;
  for (; !error && item != fs::directory_iterator(); item.increment(error))
    if (item->path().extension() == digestExtension) digests.push_back(decoded<PeriodDigest>(item->path(), readFile(item->path())));
  if (error) throw std::system_error(error, digestsFolder(dataRoot).string());
  std::ranges::stable_sort(digests, {}, &PeriodDigest::periodStartTsMs);
  return digests;
}

void writeDigest(const PeriodDigest& digest, const fs::path& dataRoot) {
  makePrivateFolder(folder(dataRoot));
  const auto file = digestURL(digest.periodStartTsMs, dataRoot);
  // Whole under another name first, then linked: a link never replaces what is there, even when two passes run without a lock.
  const auto scratch = fs::path(fmt::format("{}.{}", file.string(), ::getpid()));
  write(scratch, digest.encoded());
  const int failed = ::link(scratch.c_str(), file.c_str()) == 0 ? 0 : errno;
  ::unlink(scratch.c_str());
  if (failed == EEXIST) throw MemoryStoreError::digestAlreadyExists(digest.periodStartTsMs);
  if (failed) throw std::system_error(failed, std::generic_category(), file.string());
}

std::optional<StandingMemory> readStanding(const fs::path& dataRoot) { return readIfThere<StandingMemory>(standingURL(dataRoot)); }
void writeStanding(const StandingMemory& memory, const fs::path& dataRoot) { write(standingURL(dataRoot), memory.encoded()); }

std::optional<SequentialMemoryState> readSequentialState(const fs::path& dataRoot) {
  return readIfThere<SequentialMemoryState>(sequentialURL(dataRoot));
}
void writeSequentialState(const SequentialMemoryState& state, const fs::path& dataRoot) { write(sequentialURL(dataRoot), state.encoded()); }

void removeScraps(const fs::path& dataRoot) {
  removeScrapsIn(folder(dataRoot), false);
  removeScrapsIn(digestsFolder(dataRoot), true);
}

}  // namespace MemoryStore
}  // namespace halvo
