#include "app/RetentionCommands.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/RecordingsPage.h"
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

using CommandOutput::fail;
using CommandOutput::print;

std::filesystem::path settingsFile() { return RetentionSettingsStore::path(processEnvironment()); }

void printTable(const RecordingsPage& page) {
  std::string display;
  for (const auto& row : page.rows) {
    if (row.display != display) print(TerminalText::oneLine(display = row.display));
    print(fmt::format("  {:<26} {:>9}  {:<15}  {}", row.filename, ModelProvisioning::humanBytes(row.bytes), row.verdict, row.reason));
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

/// Prints the preview.
RecordingsPage preview(const Session& session) {
  const auto settings = session.environment.settings();
  auto page = RecordingsPage::of(session.run(false), settings, session.environment.ops);
  print(page.settings);
  if (const auto damage = RetentionSettingsStore::damage(settingsFile())) print(TerminalText::oneLine(*damage));
  printTable(page);
  if (!page.summary.empty()) print(page.summary);
  return page;
}

/// Tells a refusal; being switched off is no failure.
int statusOf(const RecordingsPage& page) {
  if (page.refusal.empty()) return 0;
  const auto words = TerminalText::oneLine(page.refusal);
  if (!page.isSwitchedOff) return fail(words);
  print(words);
  return 0;
}

bool isConfirmed() {
  std::fputs("Type \"delete\" to go on: ", stdout);
  std::fflush(stdout);
  std::string answer;
  return std::getline(std::cin, answer) && Text::trim(answer) == "delete";
}

}  // namespace

int show() { return statusOf(preview(Session())); }

int apply(bool isSure) {
  const Session session;
  const auto page = preview(session);
  if (!page.refusal.empty()) return statusOf(page);
  if (page.toGo == 0) return 0;
  if (!isSure && !isConfirmed()) return fail("nothing was deleted");
  const auto lines = RecordingsPage::outcome(session.run(true));
  print(lines.front());
  for (std::size_t i = 1; i < lines.size(); ++i) fail(TerminalText::oneLine(lines[i]));
  return lines.size() == 1 ? 0 : 1;
}

int set(const std::optional<std::string>& policy, const std::optional<std::string>& onRestart) {
  if (!policy && !onRestart) return fail("say a number of days or off, as in: halvo retention set 7 --on-restart off");
  std::optional<VideoRetention::RetentionPolicy> wanted;
  if (policy) {
    const auto days = Text::parseInteger(*policy);
    if (*policy != "off" && (!days || *days < 0)) return fail("\"" + TerminalText::oneLine(*policy) + "\" is neither a number of days nor off");
    wanted = days ? VideoRetention::RetentionPolicy(VideoRetention::DeleteOlderThanDays{*days}) : VideoRetention::Disabled{};
  }
  try {
    const auto settings = RetentionSettingsStore::change(settingsFile(), [&](RetentionSettings& changed) {
      if (wanted) changed.policy = *wanted;
      if (onRestart) changed.deleteOnRestart = *onRestart == "on";
    });
    print(RecordingsPage::describe(settings));
    if (RetentionRunner::newBootMs(settings, Session().environment)) print(RecordingsPage::restartWarning);
    return 0;
  } catch (const std::runtime_error& error) {
    return fail(TerminalText::oneLine(std::string("not changed: ") + error.what()));
  }
}

}  // namespace halvo::RetentionCommands
