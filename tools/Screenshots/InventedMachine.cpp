#include "tools/Screenshots/InventedMachine.h"

#include <array>
#include <chrono>
#include <fstream>
#include <memory>

#include <fmt/format.h>

#include "AmbitudeAppKit/Stores/DiagnosticsReport.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"
#include "Platform/Linux/LinuxMachine.h"
#include "tests/support/InventedDay.h"

namespace halvo::InventedMachine {

namespace {

namespace fs = std::filesystem;

struct Text {
  const char* program;
  std::vector<std::string> lines;
};

const std::vector<Text>& logs() {
  static const std::vector<Text> all{
      {"Supervisor",
       {"2026-03-04T13:57:10Z Supervisor keeps Signals and Capturer running", "2026-03-04T13:57:10Z Signals runs",
        "2026-03-04T13:57:10Z Capturer runs", "2026-03-04T16:20:41Z Capturer ended with 1; started again in 2 s",
        "2026-03-04T16:20:44Z Capturer runs", "2026-03-04T18:00:02Z Retention: 2 file(s) deleted, 731906048 bytes freed, 0 failed"}},
      {"ClassifierVerify",
       {"2026-03-04T13:57:12Z classifier started: model gemma4:12b-it-qat, a look every 3 s, judgments 30 to 240 s apart",
        "2026-03-04T14:03:20Z on task: You are answering letters, as you said you would.",
        "2026-03-04T14:35:50Z on task: You write the introduction of the essay.",
        "2026-03-04T20:09:03Z the local model answers again"}},
      {"CoachDriver",
       {"2026-03-04T15:55:00Z layer3 gate usage: 1 call(s), prompt 1840 (no cache figure reported), completion 96, thinking 310 chars, "
        "cost not reported",
        "2026-03-04T15:55:06Z layer3 coach usage: 1 call(s), prompt 2214 (no cache figure reported), completion 143, thinking 402 chars, "
        "cost not reported",
        "2026-03-04T15:55:06Z layer3: they were asked about the video"}}};
  return all;
}

fs::path logFile(const char* program) {
  return UserFolders::home(processEnvironment()) / "Library/Logs" / AgentProcess::logSubdirectory / (std::string(program) + ".log");
}

void setTime(const fs::path& file, std::int64_t ms) {
  const auto ago = std::chrono::system_clock::now() - std::chrono::system_clock::time_point(std::chrono::milliseconds(ms));
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::duration_cast<fs::file_time_type::duration>(ago));
}

/// Hours of earlier days, of which only the size is told.
void writeRecordings(const fs::path& root, const Calendar& calendar) {
  struct Hour {
    int month, day, hour, megabytes;
  };
  constexpr Hour hours[]{{2, 23, 10, 381}, {2, 23, 11, 402}, {2, 24, 9, 366}, {3, 2, 10, 417}, {3, 2, 11, 298}, {3, 3, 9, 344}};
  const auto folder = DataPaths::videoDir(0, root);
  fs::create_directories(folder);
  for (const auto& entry : fs::directory_iterator(folder)) setTime(entry.path(), calendar.instant(2026, 3, 4, 10, 58));
  for (const auto& [month, day, hour, megabytes] : hours) {
    const auto file = folder / fmt::format("2026-{:02}-{:02}T{:02}.mkv", month, day, hour);
    std::ofstream(file) << "";
    fs::resize_file(file, static_cast<std::uintmax_t>(megabytes) * 1'000'000);
    setTime(file, calendar.instant(2026, month, day, hour + 1));
  }
  RetentionSettingsStore::write({.policy = VideoRetention::DeleteOlderThanDays{7}}, RetentionSettingsStore::path(processEnvironment()));
}

void writeCalls(const fs::path& root, const Calendar& calendar) {
  struct Call {
    int hour, minute;
    const char* layer;
    int sent, back;
  };
  constexpr Call calls[]{{10, 44, "gate", 1795, 88}, {10, 55, "gate", 1840, 96}, {10, 55, "coach", 2214, 143}, {10, 57, "coach", 2302, 61},
                         {14, 14, "coach", 2540, 118}};
  for (const auto& [hour, minute, layer, sent, back] : calls)
    TurnUsageRecordLog::append(TurnUsageRecord{.atMs = calendar.instant(2026, 3, 4, hour, minute),
                                               .layer = layer,
                                               .promptTokens = sent,
                                               .completionTokens = back},
                               TurnUsageRecordLog::defaultURL(root));
}

BackgroundAgentState stateOf(BackgroundAgent agent) {
  using State = BackgroundAgentState;
  State state{.agent = agent, .registration = ServiceStatus::enabled, .since = "2026-03-04 08:57"};
  if (facts(agent).isScheduled) {
    state.runState = State::Idle{.lastExitCode = 0, .runs = 1};
    state.since = "2026-03-04 03:12";
  } else {
    state.runState = State::Running{.pid = 2140 + 7 * static_cast<int>(agent)};
  }
  return state;
}

std::vector<BackgroundAgentState> states() {
  std::vector<BackgroundAgentState> all;
  for (const auto& agent : backgroundAgents) all.push_back(stateOf(agent.agent));
  return all;
}

AgentLog agentLog(BackgroundAgent agent) {
  AgentLog told{.file = fmt::format("/home/you/Library/Logs/{}/{}.log", AgentProcess::logSubdirectory, facts(agent).program)};
  for (const auto& log : logs())
    if (log.program == facts(agent).program) told.lines = log.lines;
  return told;
}

/// The one that is configured is here.
ModelPage models(ModelPage page) {
  for (auto& row : page.rows) {
    row.fit = tr("fits this machine");
    row.isRecommended = row.isWhole = row.isBegun = row.isConfigured;
    row.warning.clear();
    row.state = row.isConfigured ? tr("ready") : tr("not downloaded");
  }
  return page;
}

std::string report(std::int64_t nowMs) {
  const DiagnosticsReport::Facts facts{.version = "1.0.0",
                                       .system = "Linux 6.1.0, 31.2 GB of memory",
                                       .programs = DiagnosticsReport::programs(states()),
                                       .writtenAt = ISO8601::utcSeconds(nowMs)};
  return DiagnosticsReport::render(facts, DiagnosticsReport::logsIn(UserFolders::home(processEnvironment()) / "Library/Logs"));
}

}  // namespace

void write(const fs::path& root, const Calendar& calendar) {
  for (const auto& log : logs()) {
    std::string text;
    for (const auto& line : log.lines) text += line + '\n';
    fs::create_directories(logFile(log.program).parent_path());
    writeFileAtomically(logFile(log.program), text);
  }
  writeRecordings(root, calendar);
  writeCalls(root, calendar);
  CoachPreferencesStore::write(root, {.gateInstructions = "Not in the first ten minutes of a task.",
                                      .coachInstructions = "Ask, don't scold. One question is enough.",
                                      .classifierInstructions = "Sailing videos are never research."});
  for (const auto& sign : {DataPaths::frameTimestampsPath(0, root), DataPaths::classifierCadence(root), root / "io-layer/coach-driver.pid"})
    setTime(sign, test::InventedDay::nowMs(calendar) - 2'000);
}

void putInto(Pages::Needs& needs, const Calendar& calendar) {
  const auto nowMs = test::InventedDay::nowMs(calendar);
  needs.calendar = calendar;
  needs.nowMs = [nowMs] { return nowMs; };
  needs.recordings.nowMs = needs.nowMs;
  const auto machine = std::make_shared<LinuxMachine>();
  needs.recordings.preview = [machine, calendar, nowMs] {
    const auto environment = RetentionRunner::Environment::real(*machine, calendar);
    return RecordingsPage::of(RetentionRunner::run({.nowMs = nowMs, .calendar = calendar, .environment = environment}),
                              environment.settings(), environment.ops);
  };
  needs.services.look = [] { return ServicesPage::of(states()); };
  needs.services.log = agentLog;
  needs.model.list = [list = needs.model.list] { return models(list()); };
  needs.diagnostics = [nowMs] { return report(nowMs); };
}

}  // namespace halvo::InventedMachine
