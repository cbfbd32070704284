#include "tests/support/Household.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>

#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* saver = "org.gnome.ScreenSaver";
constexpr const char* saverPath = "/org/gnome/ScreenSaver";
constexpr const char* mockInterface = "org.freedesktop.DBus.Mock";
constexpr const char* modelName = "PracticeModel";
constexpr std::array folders{"data", "home", "tmp", "logs"};

/// Empties the place of an earlier household. Anything else that stands there is somebody's, and stays.
void clear(const fs::path& work) {
  if (fs::exists(work))
    for (const auto& entry : fs::directory_iterator(work))
      if (std::find(folders.begin(), folders.end(), entry.path().filename()) == folders.end())
        throw std::runtime_error(work.string() + " holds something else (" + entry.path().filename().string() + "), so it is not emptied");
  for (const auto* folder : folders) fs::remove_all(work / folder);
}

void answerWhetherLocked(PrivateBus& bus, const char* code) {
  bus.proxy(saver, saverPath)
      ->callMethod("AddMethod")
      .onInterface(mockInterface)
      .withArguments(std::string(saver), std::string("GetActive"), std::string(), std::string("b"), std::string(code));
}

}  // namespace

Desktop::Desktop() {
  bus.startService(saver, saverPath, saver);
  answerWhetherLocked(bus, "ret = False");
}

void Desktop::lockSession() {
  answerWhetherLocked(bus, "ret = True");
  bus.proxy(saver, saverPath)
      ->callMethod("EmitSignal")
      .onInterface(mockInterface)
      .withArguments(std::string(saver), std::string("ActiveChanged"), std::string("b"), std::vector<sdbus::Variant>{sdbus::Variant(true)});
}

Household::Household(fs::path bin, fs::path work, const Desktop& desktop) : bin_(std::move(bin)), work_(std::move(work)) {
  clear(work_);
  fs::create_directories(work_);
  for (const auto* folder : folders) makePrivateFolder(work_ / folder);

  environment = processEnvironment();
  std::erase_if(environment, [](const auto& entry) { return entry.first.starts_with("AMBIT"); });
  environment["HOME"] = home().string();
  environment["TMPDIR"] = (work_ / "tmp").string();
  environment["DISPLAY"] = desktop.screen.display();
  environment["DBUS_SESSION_BUS_ADDRESS"] = desktop.bus.address();
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";  // this machine's own lid and battery have no part in it
  environment["AMBITCAP_DATA_ROOT"] = dataRoot().string();
  environment["AMBITCAP_LAYER3"] = "1";
  environment["AMBITCAP_GATE_LOG"] = "1";
  environment["AMBITCHECK_MODEL"] = "practice-model";  // so that every row says who judged
  environment["AMBITCHECK_LOOP_SEC"] = "1";            // looks every second, so that a minute is enough
}

void Household::startModel(std::vector<std::string> more) {
  const auto known = value(environment, "AMBITCAP_LOCAL_INFERENCE_ENDPOINT");
  more.insert(more.begin(), {"--listen", known.value_or("http://127.0.0.1:0")});
  programs_[modelName].end();
  std::string said;
  programs_[modelName] = ChildProcess::greeting((bin_ / modelName).string(), more, environment, said);
  const auto at = said.find("http://");
  if (at == std::string::npos) throw std::runtime_error("the practice model did not start");
  environment["AMBITCAP_LOCAL_INFERENCE_ENDPOINT"] = said.substr(at);
}

void Household::start(const std::string& agent) {
  programs_[agent].end();
  programs_[agent] = ChildProcess::logged((bin_ / agent).string(), {}, environment, work_ / "logs" / (agent + ".log"));
}

int Household::run(const std::string& command, const std::vector<std::string>& words, std::optional<int> output) const {
  std::vector<Spawn::Descriptor> streams;
  if (output) streams = {{.ours = *output, .childs = STDOUT_FILENO}, {.ours = *output, .childs = STDERR_FILENO}};
  constexpr int tookTooLong = 124;
  return ChildProcess((bin_ / command).string(), words, environment, streams).wait(20).value_or(tookTooLong);
}

std::vector<std::string> Household::logLines(const std::string& agent) const {
  std::vector<std::string> lines;
  const auto file = work_ / "logs" / (agent + ".log");
  if (!fs::exists(file)) return lines;
  const auto text = readFile(file);
  for (const auto line : Text::split(text, '\n'))
    if (!line.empty()) lines.emplace_back(line);
  return lines;
}

std::vector<EventLogEvent> Household::events() const {
  try {
    return EventLogReader::read(DataPaths::events(dataRoot()));
  } catch (const std::system_error&) {
    return {};
  }
}

std::vector<ClassifierTick> Household::verdicts() const {
  try {
    return ClassifierLogReader::read(DataPaths::checkerLog(dataRoot()));
  } catch (const std::system_error&) {
    return {};
  }
}

bool Household::sawVerdict(const std::string& state, const std::string& app) const {
  const auto all = verdicts();
  return std::any_of(all.begin(), all.end(), [&](const ClassifierTick& tick) { return tick.state == state && tick.frontmostApp == app; });
}

std::optional<std::int64_t> Household::eventTime(const std::string& type, const std::function<bool(const EventLogEvent&)>& accepts) const {
  for (const auto& event : events())
    if (event.type == type && (!accepts || accepts(event))) return event.tsMs;
  return std::nullopt;
}

std::optional<std::int64_t> Household::messageTime(const std::string& role, std::int64_t fromMs) const {
  return eventTime("app_chat_message", [&](const EventLogEvent& event) {
    const auto *from = event.text("role"), *text = event.text("text");
    return event.tsMs >= fromMs && from && *from == role && text && !text->empty();
  });
}

}  // namespace halvo::test
