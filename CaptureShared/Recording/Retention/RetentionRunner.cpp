#include "CaptureShared/Recording/Retention/RetentionRunner.h"

#include <algorithm>
#include <limits>
#include <system_error>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::RetentionRunner {

namespace {

using VideoRetentionSweep::Outcome;
using VideoRetentionSweep::Refusal;

std::int64_t hoursMs(std::int64_t hours) {
  constexpr std::int64_t hour = 3'600'000;
  return std::min(hours, std::numeric_limits<std::int64_t>::max() / hour) * hour;
}

/// Folder by folder into `outcomes`; the refusal that ended it, if one did.
template <class Sweep>
std::optional<Refusal> sweepFolders(const std::vector<fs::path>& folders, VideoRetentionSweep::Request request, Sweep sweep,
                                    std::vector<Outcome>& outcomes) {
  for (const auto& folder : folders) {
    request.directory = folder;
    auto swept = sweep(request);
    if (const auto* refusal = std::get_if<Refusal>(&swept)) return *refusal;
    outcomes.push_back(std::get<Outcome>(std::move(swept)));
  }
  return std::nullopt;
}

void markRestartSwept(const Environment& environment) {
  const auto boot = environment.currentBootMs();
  if (!boot) return;
  try {
    // The user may have changed the settings during the sweep.
    environment.persistSettings([&](RetentionSettings& settings) {
      if (settings.deleteOnRestart) settings.lastRestartSweepBootMs = *boot;
    });
  } catch (const std::runtime_error&) {
    // The files are gone; the next run finds nothing to delete and tries the mark again.
  }
}

template <class Of>
auto sumOver(const std::vector<Outcome>& outcomes, Of of) {
  decltype(of(outcomes.front())) sum = 0;
  for (const auto& outcome : outcomes) sum += of(outcome);
  return sum;
}

template <class Of>
auto allOf(const std::vector<Outcome>& outcomes, Of of) {
  std::decay_t<decltype(of(outcomes.front()))> all;
  for (const auto& outcome : outcomes)
    for (auto&& one : of(outcome)) all.push_back(one);
  return all;
}

Result attempt(const Run& run) {
  const auto& environment = run.environment;
  Result result{.wasPreview = !run.apply};
  auto refused = [&result](Refusal refusal) {
    result.refusal = std::move(refusal);
    return std::move(result);
  };
  const auto settings = environment.settings();
  if (!settings.isAnySweepEnabled()) return refused(VideoRetentionSweep::PolicyDisabled{});
  const auto videoDir = environment.videoDir();
  const auto fence = environment.fence();
  if (PurgeGuard::refusesDeletion(videoDir, fence)) return refused(VideoRetentionSweep::ProtectedMachine{});
  // A drive that is not mounted must not look like an empty archive.
  if (!environment.dataRootExists()) return refused(VideoRetentionSweep::DataRootUnavailable{});
  const auto labelled = environment.labelledHours(hoursMs(settings.labelLookbackHours), hoursMs(settings.labelLookaheadHours));
  if (!labelled) return refused(VideoRetentionSweep::LabelSetUnreadable{});
  const auto deleteBeforeMs = newBootMs(settings, environment);
  result.includedRestartSweep = deleteBeforeMs.has_value();
  if (!deleteBeforeMs && std::holds_alternative<VideoRetention::Disabled>(settings.policy)) return result;
  const auto folders = VideoRetentionSweep::displayDirectories(videoDir, environment.ops);
  if (const auto* refusal = std::get_if<Refusal>(&folders)) return refused(*refusal);
  const VideoRetentionSweep::Request request{.policy = settings.policy,
                                             .labelledHours = labelled,
                                             .deleteBeforeMs = deleteBeforeMs,
                                             .nowMs = run.nowMs,
                                             .calendar = run.calendar,
                                             .fence = fence,
                                             .ops = environment.ops};
  const auto& displays = std::get<std::vector<fs::path>>(folders);
  // All of them are looked at before any is touched: a refusal says that nothing was deleted.
  std::vector<Outcome> previews;
  if (auto refusal = sweepFolders(displays, request, VideoRetentionSweep::preview, previews)) {
    if (!run.apply) result.outcomes = std::move(previews);
    return refused(std::move(*refusal));
  }
  if (!run.apply) {
    result.outcomes = std::move(previews);
    return result;
  }
  if (auto refusal = sweepFolders(displays, request, VideoRetentionSweep::apply, result.outcomes)) return refused(std::move(*refusal));
  if (result.includedRestartSweep && result.failures().empty()) markRestartSwept(environment);
  return result;
}

}  // namespace

Environment Environment::real(const Machine& machine, const Calendar& calendar) {
  const auto file = RetentionSettingsStore::path(processEnvironment());
  return {.settings = [file] { return RetentionSettingsStore::read(file); },
          .persistSettings = [file](const RetentionSettingsStore::Change& how) { RetentionSettingsStore::change(file, how); },
          .videoDir = [] { return DataPaths::videoDir(); },
          .dataRootExists = [] { return DataPaths::isDataRootAvailable(); },
          .labelledHours =
              [calendar](std::int64_t lookbackMs, std::int64_t lookaheadMs) {
                return LabelledHours::sourceHours(
                    {.database = DataPaths::labelsDB(), .lookbackMs = lookbackMs, .lookaheadMs = lookaheadMs, .calendar = calendar});
              },
          .currentBootMs =
              [&machine]() -> std::optional<std::int64_t> {
                const auto boot = machine.bootTimeMs();
                return boot && *boot >= 1000 ? boot : std::nullopt;  // before the clock was set it tells nothing
              },
          .fence =
              [&machine] {
                return PurgeGuard::Fence{.roots = PurgeGuard::protectedRoots(),
                                         .machineIsProtected = PurgeGuard::currentMachineIsProtected(machine)};
              },
          .ops = VideoRetentionSweep::FileOps::real()};
}

std::optional<std::int64_t> newBootMs(const RetentionSettings& settings, const Environment& environment) {
  const auto boot = settings.deleteOnRestart ? environment.currentBootMs() : std::nullopt;
  return boot && settings.lastRestartSweepBootMs.value_or(*boot - 1) < *boot ? boot : std::nullopt;
}

std::size_t Result::filesDeleted() const {
  return sumOver(outcomes, [](const Outcome& outcome) { return outcome.succeeded().size(); });
}
std::int64_t Result::bytesFreed() const {
  return sumOver(outcomes, [](const Outcome& outcome) { return outcome.bytesFreed(); });
}
std::size_t Result::filesConsidered() const {
  return sumOver(outcomes, [](const Outcome& outcome) { return outcome.removals.size(); });
}
std::int64_t Result::bytesConsidered() const {
  return sumOver(outcomes, [](const Outcome& outcome) { return outcome.bytesConsidered(); });
}
std::vector<VideoRetention::Candidate> Result::kept() const {
  return allOf(outcomes, [](const Outcome& outcome) { return outcome.kept; });
}
std::vector<VideoRetentionSweep::Removal> Result::failures() const {
  return allOf(outcomes, [](const Outcome& outcome) { return outcome.failed(); });
}

Result run(const Run& run) {
  auto result = attempt(run);
  const bool isNews = result.refusal && !std::holds_alternative<VideoRetentionSweep::PolicyDisabled>(*result.refusal);
  if (run.apply && isNews && run.log) run.log("Retention: sweep refused — " + VideoRetentionSweep::explanation(*result.refusal));
  return result;
}

}  // namespace halvo::RetentionRunner
