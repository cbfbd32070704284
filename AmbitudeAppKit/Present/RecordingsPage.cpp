#include "AmbitudeAppKit/Present/RecordingsPage.h"

#include <algorithm>

#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Recording/Retention/RetentionPresets.h"

namespace halvo {

namespace {

using ModelProvisioning::humanBytes;
using VideoRetention::Verdict;
using VideoRetentionSweep::Outcome;

std::string reasonToDelete(const RetentionSettings& settings, bool isRestartSweep) {
  const auto days = VideoRetention::days(settings.policy);
  const auto age = days ? tr("over {} old", RetentionPresets::label(*days)) : std::string();
  if (!isRestartSweep) return age;
  return age.empty() ? tr("from before the last start") : tr("{} or from before the last start", age);
}

std::string reasonToKeep(Verdict verdict) {
  switch (verdict) {
    case Verdict::delete_: return "";
    case Verdict::keptRecent: return tr("not old enough, or written to since");
    case Verdict::keptCurrentHour: return tr("being recorded now");
    case Verdict::keptLabelled: return tr("near a moment that you labelled");
  }
  return "";
}

std::string hours(std::int64_t count) { return count == 1 ? tr("1 hour") : tr("{} hours", count); }

void addRows(std::vector<RecordingsPage::Row>& rows, const Outcome& outcome, const std::string& reason, const VideoRetentionSweep::FileOps& ops) {
  const auto display = outcome.directory.filename().string();
  const auto from = static_cast<std::ptrdiff_t>(rows.size());
  for (const auto& removal : outcome.removals)
    rows.push_back({display, removal.filename, removal.bytes, std::string(rawValue(Verdict::delete_)), reason, true});
  for (const auto& kept : outcome.kept)
    rows.push_back({display, kept.filename, ops.sizeOfFile(outcome.directory / kept.filename), std::string(rawValue(kept.verdict)),
                    reasonToKeep(kept.verdict), false});
  std::sort(rows.begin() + from, rows.end(), [](const auto& a, const auto& b) { return a.filename < b.filename; });
}

}  // namespace

RecordingsPage RecordingsPage::of(const RetentionRunner::Result& preview, const RetentionSettings& settings,
                                  const VideoRetentionSweep::FileOps& ops) {
  RecordingsPage page;
  page.settings = describe(settings);
  page.protection = tr("What a label of yours points at is never deleted, from {} before it to {} after.",
                       hours(settings.labelLookbackHours), hours(settings.labelLookaheadHours));
  if (preview.includedRestartSweep) page.warning = tr(restartWarning);
  const auto reason = reasonToDelete(settings, preview.includedRestartSweep);
  for (const auto& outcome : preview.outcomes) addRows(page.rows, outcome, reason, ops);
  if (preview.refusal) {
    page.refusal = VideoRetentionSweep::explanation(*preview.refusal);
    page.isSwitchedOff = std::holds_alternative<VideoRetentionSweep::PolicyDisabled>(*preview.refusal);
    return page;
  }
  page.toGo = preview.filesConsidered();
  page.summary = tr("to delete: {} file(s), {}; to keep: {}", page.toGo, humanBytes(preview.bytesConsidered()), preview.kept().size());
  return page;
}

std::vector<std::string> RecordingsPage::outcome(const RetentionRunner::Result& applied) {
  std::vector<std::string> lines{tr("deleted: {} file(s), {} freed", applied.filesDeleted(), humanBytes(applied.bytesFreed()))};
  for (const auto& failure : applied.failures()) lines.push_back(tr("not deleted: {}", *failure.failure));
  if (applied.refusal) lines.push_back(VideoRetentionSweep::explanation(*applied.refusal));
  return lines;
}

std::string RecordingsPage::describe(const RetentionSettings& settings) {
  const auto days = VideoRetention::days(settings.policy);
  return tr("recordings are deleted after: {}; on restart: {}", days ? RetentionPresets::label(*days) : tr("never"),
            settings.deleteOnRestart ? tr("on, everything from before it") : tr("off"));
}

}  // namespace halvo
