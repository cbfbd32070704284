#include "CaptureShared/Recording/Retention/VideoRetentionSweep.h"

#include <algorithm>
#include <system_error>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::VideoRetentionSweep {

namespace {

using VideoRetention::Verdict;

enum class Mode { preview, apply };

std::vector<Removal> removalsThat(const std::vector<Removal>& removals, bool haveFailed) {
  std::vector<Removal> chosen;
  std::ranges::copy_if(removals, std::back_inserter(chosen), [&](const Removal& removal) { return removal.failure.has_value() == haveFailed; });
  return chosen;
}

/// Why the file is still there, or absent when it is gone.
std::optional<std::string> remove(const fs::path& file, std::int64_t listedWriteMs, const FileOps& ops) {
  if (ops.lastWriteMs(file) != listedWriteMs) return file.string() + ": changed since it was listed, so it was kept";
  try {
    ops.removeFile(file);
    return std::nullopt;
  } catch (const std::system_error& error) {
    return error.what();
  }
}

Swept sweep(const Request& request, Mode mode) {
  if (std::holds_alternative<VideoRetention::Disabled>(request.policy) && !request.deleteBeforeMs) return PolicyDisabled{};
  if (PurgeGuard::refusesDeletion(request.directory, request.fence)) return ProtectedMachine{};
  if (!request.labelledHours) return LabelSetUnreadable{};
  std::vector<std::string> names;
  try {
    names = request.ops.listDirectory(request.directory);
  } catch (const std::system_error&) {
    return VideoDirUnreadable{request.directory.string()};
  }
  std::map<std::string, std::int64_t> lastWrites;
  for (const auto& name : names)
    if (VideoRetention::parseHourPrefix(name))
      if (const auto written = request.ops.lastWriteMs(request.directory / name)) lastWrites.emplace(name, *written);
  const auto candidates = VideoRetention::plan({.filenames = std::move(names),
                                                .policy = request.policy,
                                                .labelledHourPrefixes = request.labelledHours->prefixes,
                                                .deleteBeforeMs = request.deleteBeforeMs,
                                                .lastWriteMs = lastWrites,
                                                .nowMs = request.nowMs,
                                                .calendar = request.calendar,
                                                .labelledSpans = request.labelledHours->spans});
  Outcome outcome{.directory = request.directory, .wasPreview = mode == Mode::preview};
  for (const auto& candidate : candidates) {
    if (candidate.verdict != Verdict::delete_) {
      outcome.kept.push_back(candidate);
      continue;
    }
    const auto file = request.directory / candidate.filename;
    Removal removal{.filename = candidate.filename, .hourPrefix = candidate.hourPrefix, .bytes = request.ops.sizeOfFile(file)};
    if (mode == Mode::apply) removal.failure = remove(file, lastWrites.at(candidate.filename), request.ops);
    outcome.removals.push_back(std::move(removal));
  }
  return outcome;
}

std::int64_t bytesOf(const std::vector<Removal>& removals) {
  std::int64_t sum = 0;
  for (const auto& removal : removals) sum += removal.bytes;
  return sum;
}

}  // namespace

std::string explanation(const Refusal& refusal) {
  return match(
      refusal, [](const PolicyDisabled&) { return tr("Retention is off, so nothing was deleted."); },
      [](const DataRootUnavailable&) { return tr("The data volume isn't mounted, so nothing was deleted."); },
      [](const LabelSetUnreadable&) {
        return tr(
            "Couldn't read the hand-label database, so nothing was deleted — sweeping without it could destroy the footage those labels were "
            "made from.");
      },
      [](const ProtectedMachine&) { return tr(PurgeGuard::refusalExplanation); },
      [](const VideoDirUnreadable& unreadable) { return tr("Couldn't list {}, so nothing was deleted.", unreadable.path); });
}

std::vector<Removal> Outcome::succeeded() const { return removalsThat(removals, false); }
std::vector<Removal> Outcome::failed() const { return removalsThat(removals, true); }
std::int64_t Outcome::bytesFreed() const { return bytesOf(succeeded()); }
std::int64_t Outcome::bytesConsidered() const { return bytesOf(removals); }

Swept preview(const Request& request) { return sweep(request, Mode::preview); }
Swept apply(const Request& request) { return sweep(request, Mode::apply); }

std::variant<std::vector<fs::path>, Refusal> displayDirectories(const fs::path& videoDir, const FileOps& ops) {
  std::vector<std::string> names;
  try {
    names = ops.listDirectory(videoDir);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::vector<fs::path>();
    return VideoDirUnreadable{videoDir.string()};
  }
  std::ranges::sort(names);
  std::vector<fs::path> folders;
  for (const auto& name : names)
    if (name.starts_with("display-")) folders.push_back(videoDir / name);
  return folders;
}

}  // namespace halvo::VideoRetentionSweep
