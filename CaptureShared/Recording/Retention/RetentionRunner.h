#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Labels/LabelledHours.h"
#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"
#include "CaptureShared/Recording/Retention/VideoRetentionSweep.h"

/// One run of retention over every display. It may run at any time and as often as wanted; nothing is kept between runs but the settings file.
namespace halvo::RetentionRunner {

namespace fs = std::filesystem;

/// The world of a run.
struct Environment {
  std::function<RetentionSettings()> settings;
  /// Changes the settings as they are by then; throws what `RetentionSettingsStore::change` does.
  std::function<void(const RetentionSettingsStore::Change&)> persistSettings;
  std::function<fs::path()> videoDir;
  std::function<bool()> dataRootExists;
  /// Absent when the labels can't be read.
  std::function<std::optional<LabelledHours::Hours>(std::int64_t lookbackMs, std::int64_t lookaheadMs)> labelledHours;
  std::function<std::optional<std::int64_t>()> currentBootMs;
  std::function<PurgeGuard::Fence()> fence;
  VideoRetentionSweep::FileOps ops;

  /// The disk's. `machine` must outlive it.
  static Environment real(const Machine& machine, const Calendar& calendar);
};

/// The machine's start, when a sweep is due for it: everything from before it goes.
std::optional<std::int64_t> newBootMs(const RetentionSettings& settings, const Environment& environment);

struct Result {
  std::vector<VideoRetentionSweep::Outcome> outcomes = {};  ///< one per display folder, in order
  std::optional<VideoRetentionSweep::Refusal> refusal = {};
  bool includedRestartSweep = false;
  bool wasPreview = true;

  bool didSweep() const { return !refusal; }
  // Sums over the outcomes; in a preview what would be deleted counts as deleted.
  std::size_t filesDeleted() const;
  std::int64_t bytesFreed() const;
  std::size_t filesConsidered() const;
  std::int64_t bytesConsidered() const;
  std::vector<VideoRetention::Candidate> kept() const;
  std::vector<VideoRetentionSweep::Removal> failures() const;
};

struct Run {
  bool apply = false;  ///< false only shows what would be done
  std::int64_t nowMs = 0;
  const Calendar& calendar;
  const Environment& environment;
  LogSink log = {};
};
/// Everything that could be told wrong refuses the run. A restart sweep is done once a start of the machine; one with a failed removal is
/// done again by the next run.
Result run(const Run& run);

}  // namespace halvo::RetentionRunner
