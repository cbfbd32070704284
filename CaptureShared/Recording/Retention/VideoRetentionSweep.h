#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Recording/Retention/PurgeGuard.h"
#include "CaptureShared/Recording/Retention/RetentionFileOps.h"
#include "CaptureShared/Recording/Retention/VideoRetention.h"

/// Carries a plan out in one display's folder, or only shows what would come of it.
namespace halvo::VideoRetentionSweep {

// Why nothing was deleted.
struct PolicyDisabled {
  bool operator==(const PolicyDisabled&) const = default;
};
struct DataRootUnavailable {
  bool operator==(const DataRootUnavailable&) const = default;
};
struct LabelSetUnreadable {
  bool operator==(const LabelSetUnreadable&) const = default;
};
struct ProtectedMachine {
  bool operator==(const ProtectedMachine&) const = default;
};
struct VideoDirUnreadable {
  std::string path;
  bool operator==(const VideoDirUnreadable&) const = default;
};
using Refusal = std::variant<PolicyDisabled, DataRootUnavailable, LabelSetUnreadable, ProtectedMachine, VideoDirUnreadable>;
std::string explanation(const Refusal& refusal);

struct Removal {
  std::string filename, hourPrefix;
  std::int64_t bytes = 0;
  std::optional<std::string> failure = {};  ///< absent: it is gone, or in a preview would be tried
  bool operator==(const Removal&) const = default;
};

struct Outcome {
  fs::path directory = {};
  bool wasPreview = true;
  std::vector<Removal> removals = {};
  std::vector<VideoRetention::Candidate> kept = {};

  std::vector<Removal> succeeded() const;
  std::vector<Removal> failed() const;
  std::int64_t bytesFreed() const;       ///< of those that succeeded
  std::int64_t bytesConsidered() const;  ///< of all removals
  bool operator==(const Outcome&) const = default;
};

struct Request {
  fs::path directory = {};
  VideoRetention::RetentionPolicy policy = {};
  const std::optional<LabelledHours::Hours>& labelledHours;  ///< absent: they could not be read
  std::optional<std::int64_t> deleteBeforeMs = {};
  std::int64_t nowMs = 0;
  const Calendar& calendar;
  const PurgeGuard::Fence& fence;
  const FileOps& ops;
};
using Swept = std::variant<Outcome, Refusal>;
/// Removes nothing.
Swept preview(const Request& request);
/// Removes what `preview` shows. A file that was written to since the folder was listed stays, and counts as a failure like any removal
/// that did not succeed; the rest goes on.
Swept apply(const Request& request);

/// The folders "display-…" in order; none when `videoDir` is missing.
std::variant<std::vector<fs::path>, Refusal> displayDirectories(const fs::path& videoDir, const FileOps& ops);

}  // namespace halvo::VideoRetentionSweep
