#include "app/Commands.h"

#include <cstdio>
#include <filesystem>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "AmbitudeAppKit/Entry/StateDump.h"
#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeAppKit/Live/TerminalChat.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Stores/Health.h"
#include "AmbitudeCore/Backends/Factory/ModelSelection.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Intention/CurrentIntention.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Intention/IntentionWriter.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "CaptureShared/Signals/SignalsStaleness.h"
#include "app/CommandOutput.h"
#include "app/ModelCommands.h"
#include "app/QuietCommands.h"

namespace halvo::Commands {

namespace {

using CommandOutput::fail;
using CommandOutput::print;

/// Runs a command that writes.
template <class F>
int recording(F&& command) {
  return CommandOutput::withDataRoot(
      [&] {
        DataPaths::ensureSubdirsExist();
        return std::forward<F>(command)();
      },
      "not recorded: ");
}

int record(const IntentionWriter::Record& intention, const std::string& words) {
  return recording([&] {
    IntentionWriter::perform(intention, IntentionWriter::standardSinks("halvo"));
    print(words);
    return 0;
  });
}

/// A blank answer is none.
std::optional<std::string> unlessBlank(const std::optional<std::string>& text) {
  return text && !Text::isBlank(*text) ? std::optional(std::string(Text::trim(*text))) : std::nullopt;
}

std::string ago(std::int64_t nowMs, std::int64_t thenMs) {
  return SignalsStaleness::humanDuration(std::max<std::int64_t>(0, nowMs - thenMs)) + " ago";
}

/// Which model the coach runs on, or why it will not start.
std::string selectionLine() {
  const auto environment = processEnvironment();
  const auto refusal = ModelBackendFactory::fatalReason(environment);
  return "coach:     " + TerminalText::oneLine(refusal ? *refusal : ModelBackendFactory::describeSelection(environment));
}

std::string quietLine() {
  try {
    return "quiet:     " + QuietCommands::now();
  } catch (const std::exception& error) {
    return std::string("quiet:     unreadable (") + error.what() + ")";
  }
}

/// What matters most about the programs in the background.
std::string healthLine(std::int64_t nowMs) {
  const auto state = Health::look(processEnvironment(), nowMs);
  return TerminalText::oneLine("health:    " + state.title + (state.detail.empty() ? "" : " (" + state.detail + ")"));
}

std::string sampledLine(std::int64_t nowMs) {
  try {
    const auto newest = SignalsReader(DataPaths::signalsDB()).latestTick();
    if (!newest) return "sampled:   never";
    return fmt::format("sampled:   {} [{}]", ago(nowMs, newest->tsMs), TerminalText::oneLine(newest->frontmostApp.value_or("-")));
  } catch (const SignalsReaderError& error) {
    std::error_code ignored;
    return std::filesystem::exists(DataPaths::signalsDB(), ignored) ? std::string("sampled:   unreadable (") + error.what() + ")"
                                                                      : "sampled:   never";
  }
}

}  // namespace

int declare(const std::string& task, const std::optional<std::string>& until, const std::optional<std::string>& why) {
  const auto text = std::string(Text::trim(task));
  if (text.empty()) return fail("say what you mean to be doing, as in: halvo declare \"write the essay\" --until 5:00pm");
  return record(
      IntentionWriter::declare({.task = text, .until = unlessBlank(until), .why = unlessBlank(why), .asOfMs = Clock::system().nowMs()}),
      "declared: " + text);
}

int takeBreak(const std::optional<std::string>& given) {
  const auto until = unlessBlank(given);
  return record(IntentionWriter::declareBreak(until, Clock::system().nowMs()),
                "declared: Break" + (until ? " until " + *until : std::string()));
}

int clear() { return record(IntentionWriter::clear(Clock::system().nowMs()), "cleared: nothing is declared now"); }

int status() {
  print(AgentConfig::describe(AgentConfig::dataRootStatus()));
  if (DataPaths::configFileExistsButFailedToParse())
    print("config:    " + DataPaths::configURL().string() + " could not be read as settings; its values are not in force");
  for (const auto& key : AgentConfig::load().unknownKeys)
    print("config:    " + TerminalText::oneLine(key) + " is not a setting and was ignored");
  print(selectionLine());
  print(ModelCommands::healthLines());
  const auto now = Clock::system().nowMs();
  if (!DataPaths::isDataRootAvailable()) {
    print(healthLine(now));
    return 1;
  }
  const auto body = CurrentTask::read();
  const auto intention = body ? CurrentIntention::parse(*body) : std::nullopt;
  print("intention: " + (intention ? TerminalText::oneLine(intention->task) : std::string("none declared")));
  if (intention && intention->estimate) print("estimate:  " + TerminalText::oneLine(*intention->estimate));
  print(quietLine());
  print(healthLine(now));
  print(sampledLine(now));
  LiveLog log(DataPaths::dataRoot());
  std::optional<LiveLog::Line> verdict, gate, spoken;
  for (const auto& line : log.poll()) {
    if (line.kind == LiveLog::Kind::verdict) verdict = line;
    if (line.kind == LiveLog::Kind::gate) gate = line;
    if (line.kind == LiveLog::Kind::coach) spoken = line;
  }
  auto show = [&](const char* label, const std::optional<LiveLog::Line>& line) {
    print(label + (line ? ago(now, line->tsMs) + "  " + line->text : std::string("never")));
  };
  show("judged:    ", verdict);
  show("gate:      ", gate);
  show("Lark:      ", spoken);
  return 0;
}

int log(std::size_t count, bool follow) {
  if (!DataPaths::isDataRootAvailable()) return fail(DataPaths::dataRootUnavailableReason());
  const TerminationSignals signals;
  const auto calendar = Calendar::local();
  LiveLog live(DataPaths::dataRoot());
  const auto lines = live.poll();
  for (std::size_t i = lines.size() > count ? lines.size() - count : 0; i < lines.size(); ++i) print(LiveLog::render(lines[i], calendar));
  std::fflush(stdout);
  const auto clock = Clock::system();
  while (follow && !signals.token().stop_requested()) {
    clock.wait(0.3, signals.token());
    for (const auto& line : live.poll()) print(LiveLog::render(line, calendar));
    // Whoever watched is gone.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) break;
  }
  return 0;
}

int say(const std::string& text, double waitSec) {
  if (Text::isBlank(text)) return fail("say something, as in: halvo say \"back to it\"");
  return recording([&] {
    const TerminationSignals signals;
    LiveLog live(DataPaths::dataRoot());
    live.poll();
    const auto sentMs = sendUserMessage(text, DataPaths::dataRoot(), "halvo");
    print("sent");
    std::fflush(stdout);
    const auto clock = Clock::system();
    const auto calendar = Calendar::local();
    while (waitSec > 0 && !signals.token().stop_requested()) {
      if (static_cast<double>(clock.nowMs() - sentMs) > waitSec * 1000) return fail("no answer yet; it will show in: halvo chat");
      for (const auto& line : live.poll())
        if (line.tsMs >= sentMs && (line.kind == LiveLog::Kind::coach || line.kind == LiveLog::Kind::trouble)) {
          print(LiveLog::render(line, calendar));
          return 0;
        }
      clock.wait(0.2, signals.token());
    }
    return 0;
  });
}

int chat(bool withLog, bool withThinking) {
  return recording([&] {
    TerminationSignals signals;
    TerminalChat({.dataRoot = DataPaths::dataRoot(), .withLog = withLog, .withThinking = withThinking}, Calendar::local()).run(signals.token());
    return 0;
  });
}

}  // namespace halvo::Commands
