#include "app/RetentionCommands.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Recording/Retention/RetentionPresets.h"
#include "CaptureShared/Recording/Retention/RetentionRunner.h"
#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"
#include "Platform/Linux/LinuxMachine.h"
#include "app/CommandOutput.h"

namespace halvo::RetentionCommands {

namespace {

using ModelProvisioning::humanBytes;
using VideoRetention::Verdict;
using VideoRetentionSweep::Outcome;

using CommandOutput::fail;
using CommandOutput::print;

std::string describe(const RetentionSettings& settings) {
  const auto days = VideoRetention::days(settings.policy);
  return fmt::format("recordings are deleted after: {}; on restart: {}", days ? RetentionPresets::label(*days) : "never",
                     settings.deleteOnRestart ? "on, everything from before it" : "off");
}

std::filesystem::path settingsFile() { return RetentionSettingsStore::path(processEnvironment()); }

std::string damagedText() { return settingsFile().string() + " can't be read as settings, so retention is off until it is mended or removed"; }

struct Row {
  std::string filename;
  std::int64_t bytes = 0;
  std::string verdict, reason;
};

std::string reasonToDelete(const RetentionSettings& settings, bool isRestartSweep) {
  const auto days = VideoRetention::days(settings.policy);
  const auto age = days ? "over " + RetentionPresets::label(*days) + " old" : std::string();
  if (!isRestartSweep) return age;
  return (age.empty() ? "" : age + " or ") + "from before the last start";
}

std::string reasonToKeep(Verdict verdict) {
  switch (verdict) {
    case Verdict::delete_: return "";
    case Verdict::keptRecent: return "not old enough, or written to since";
    case Verdict::keptCurrentHour: return "being recorded now";
    case Verdict::keptLabelled: return "near a moment that you labelled";
  }
  return "";
}

std::vector<Row> rowsOf(const Outcome& outcome, const std::string& reason, const VideoRetentionSweep::FileOps& ops) {
  std::vector<Row> rows;
  for (const auto& removal : outcome.removals)
    rows.push_back({removal.filename, removal.bytes, std::string(rawValue(Verdict::delete_)), reason});
  for (const auto& kept : outcome.kept)
    rows.push_back(
        {kept.filename, ops.sizeOfFile(outcome.directory / kept.filename), std::string(rawValue(kept.verdict)), reasonToKeep(kept.verdict)});
  std::ranges::sort(rows, {}, &Row::filename);
  return rows;
}

void printTable(const RetentionRunner::Result& result, const RetentionSettings& settings, const VideoRetentionSweep::FileOps& ops) {
  const auto reason = reasonToDelete(settings, result.includedRestartSweep);
  for (const auto& outcome : result.outcomes) {
    print(TerminalText::oneLine(outcome.directory.filename().string()));
    for (const auto& row : rowsOf(outcome, reason, ops))
      print(fmt::format("  {:<26} {:>9}  {:<15}  {}", row.filename, humanBytes(row.bytes), row.verdict, row.reason));
  }
}

/// One machine and one moment for a preview and for what is done upon it.
struct Session {
  LinuxMachine machine = LinuxMachine();
  Calendar calendar = Calendar::local();
  std::int64_t nowMs = Clock::system().nowMs();
  RetentionRunner::Environment environment = RetentionRunner::Environment::real(machine, calendar);

  RetentionRunner::Result run(bool apply) const {
    return RetentionRunner::run({.apply = apply, .nowMs = nowMs, .calendar = calendar, .environment = environment});
  }
};

/// A refusal's words and exit status; being switched off is no failure.
int tellRefusal(const VideoRetentionSweep::Refusal& refusal) {
  const auto words = TerminalText::oneLine(VideoRetentionSweep::explanation(refusal));
  if (!std::holds_alternative<VideoRetentionSweep::PolicyDisabled>(refusal)) return fail(words);
  print(words);
  return 0;
}

/// Prints the preview; absent when it was refused, with `status` told.
std::optional<RetentionRunner::Result> preview(const Session& session, int& status) {
  const auto settings = session.environment.settings();
  print(describe(settings));
  if (RetentionSettingsStore::isDamaged(settingsFile())) print(TerminalText::oneLine(damagedText()));
  auto result = session.run(false);
  printTable(result, settings, session.environment.ops);
  if (result.refusal) {
    status = tellRefusal(*result.refusal);
    return std::nullopt;
  }
  print(fmt::format("to delete: {} file(s), {}; to keep: {}", result.filesConsidered(), humanBytes(result.bytesConsidered()), result.kept().size()));
  return result;
}

bool isConfirmed() {
  std::fputs("Type \"delete\" to go on: ", stdout);
  std::fflush(stdout);
  std::string answer;
  return std::getline(std::cin, answer) && Text::trim(answer) == "delete";
}

}  // namespace

int show() {
  int status = 0;
  preview(Session(), status);
  return status;
}

int apply(bool isSure) {
  const Session session;
  int status = 0;
  const auto shown = preview(session, status);
  if (!shown) return status;
  if (shown->filesConsidered() == 0) return 0;
  if (!isSure && !isConfirmed()) return fail("nothing was deleted");
  const auto result = session.run(true);
  print(fmt::format("deleted: {} file(s), {} freed", result.filesDeleted(), humanBytes(result.bytesFreed())));
  for (const auto& failure : result.failures()) fail("not deleted: " + TerminalText::oneLine(*failure.failure));
  if (result.refusal) return tellRefusal(*result.refusal);
  return result.failures().empty() ? 0 : 1;
}

int set(const std::optional<std::string>& policy, const std::optional<std::string>& onRestart) {
  if (!policy && !onRestart) return fail("say a number of days or off, as in: halvo retention set 7 --on-restart off");
  // The widths of what labels protect stand in the same file.
  if (RetentionSettingsStore::isDamaged(settingsFile())) return fail(TerminalText::oneLine(damagedText()));
  auto settings = RetentionSettingsStore::read(settingsFile());
  if (policy) {
    const auto days = Text::parseInteger(*policy);
    if (*policy != "off" && (!days || *days < 0)) return fail("\"" + TerminalText::oneLine(*policy) + "\" is neither a number of days nor off");
    settings.policy = days ? VideoRetention::RetentionPolicy(VideoRetention::DeleteOlderThanDays{*days}) : VideoRetention::Disabled{};
  }
  if (onRestart) settings.deleteOnRestart = *onRestart == "on";
  try {
    RetentionSettingsStore::write(settings, settingsFile());
  } catch (const std::system_error& error) {
    return fail(std::string("not changed: ") + error.what());
  }
  print(describe(settings));
  if (onRestart == "on" && !settings.lastRestartSweepBootMs) print("the next sweep deletes what was recorded before the last start too");
  return 0;
}

}  // namespace halvo::RetentionCommands
