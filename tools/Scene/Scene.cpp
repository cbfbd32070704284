#include "tools/Scene/Scene.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/wait.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

namespace {

constexpr const char* saver = "org.gnome.ScreenSaver";
constexpr const char* saverPath = "/org/gnome/ScreenSaver";
constexpr const char* mockInterface = "org.freedesktop.DBus.Mock";
constexpr const char* answer = "ok im switching to laundry for 20 min";
constexpr int answerMinutes = 20;

void print(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

std::vector<sdbus::Variant> arguments(bool flag) { return {sdbus::Variant(flag)}; }

}  // namespace

Scene::Scene(std::filesystem::path bin, std::filesystem::path work) : bin_(std::move(bin)), work_(std::move(work)) {}

bool Scene::play() {
  try {
    prepare();
    expect("the first sample", 30, [&] {
      std::error_code ignored;
      return std::filesystem::exists(DataPaths::signalsDB(dataRoot()), ignored);
    });
    print("* declaring an intention with an estimate");
    command("halvo", {"declare", "write the essay", "--until", calendar_.clock12(Clock::system().nowMs() + 2 * 3'600'000)});

    print("* working on it");
    editor_ = std::make_unique<test::TestWindow>(
        display_->display(), test::TestWindow::Options{.title = "the essay - draft 2 - Text Editor",
                                                       .className = "Gedit",
                                                       .width = 700,
                                                       .height = 500,
                                                       .text = "The essay: why the bridge at Arta took so long to build",
                                                       .textScale = 2});
    editor_->activate();
    expect("an ON_TASK verdict on the editor", 60, [&] { return sawVerdict("ON_TASK", "Gedit"); });

    print("* drifting to a video site");
    videoSite_ = std::make_unique<test::TestWindow>(
        display_->display(), test::TestWindow::Options{.title = "Ten cats falling off things - YouTube - Mozilla Firefox",
                                                       .className = "firefox",
                                                       .x = 150,
                                                       .width = 900,
                                                       .height = 600,
                                                       .text = "Up next: twenty more cats. 1,204,331 views",
                                                       .textScale = 2});
    videoSite_->activate();
    expect("a NOT_ALIGNED verdict on the video site", 60, [&] { return sawVerdict("NOT_ALIGNED", "firefox"); });
    expect("Lark's question", 60, [&] { return eventTime("coach_checkin", [](const auto&) { return true; }).has_value(); });

    print("* answering");
    const auto saidMs = Clock::system().nowMs();
    command("halvo", {"say", answer});
    expect("Lark's answer", 60, [&] {
      return eventTime("app_chat_message", [&](const EventLogEvent& event) {
               return event.tsMs >= saidMs && event.text("role") && *event.text("role") == "coach";
             }).has_value();
    });

    print("* the session locks");
    lockSession();
    expect("an IDLE verdict", 60, [&] { return sawVerdict("IDLE", "loginwindow"); });

    print("* what the system believes now");
    command("AmbitudeApp", {"--dump"});
    return verify();
  } catch (const std::exception& error) {
    showNews();
    print(std::string("! ") + error.what());
    return false;
  }
}

void Scene::prepare() {
  std::filesystem::remove_all(work_);
  std::filesystem::create_directories(dataRoot());
  std::filesystem::create_directories(work_ / "home");
  std::filesystem::create_directories(work_ / "logs");

  display_ = std::make_unique<test::XServer>();
  bus_ = std::make_unique<test::PrivateBus>();
  bus_->startService(saver, saverPath, saver);
  bus_->proxy(saver, saverPath)
      ->callMethod("AddMethod")
      .onInterface(mockInterface)
      .withArguments(std::string(saver), std::string("GetActive"), std::string(), std::string("b"), std::string("ret = False"));

  environment_ = processEnvironment();
  std::erase_if(environment_, [](const auto& entry) { return entry.first.starts_with("AMBIT"); });
  environment_["HOME"] = (work_ / "home").string();
  environment_["DISPLAY"] = display_->display();
  environment_["DBUS_SESSION_BUS_ADDRESS"] = bus_->address();
  environment_["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";  // this machine's own lid and battery are not part of the scene
  environment_["AMBITCAP_DATA_ROOT"] = dataRoot().string();
  environment_["AMBITCAP_LAYER3"] = "1";
  environment_["AMBITCAP_GATE_LOG"] = "1";
  environment_["AMBITCHECK_MODEL"] = "practice-model";  // so that every row says who judged
  environment_["AMBITCHECK_LOOP_SEC"] = "1";  // looks every second, so that a minute is enough

  auto pipe = std::array<int, 2>{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const FileHandle read(pipe[0]);
  FileHandle write(pipe[1]);
  programs_["PracticeModel"] =
      test::ChildProcess((bin_ / "PracticeModel").string(), {"--listen", "http://127.0.0.1:0"}, environment_, {{write.fd(), 1}});
  write.reset();
  std::string said;
  char byte = 0;
  while (::read(read.fd(), &byte, 1) == 1 && byte != '\n') said += byte;
  const auto at = said.find("http://");
  if (at == std::string::npos) throw std::runtime_error("the practice model did not start");
  environment_["AMBITCAP_LOCAL_INFERENCE_ENDPOINT"] = said.substr(at);
  print("* a private desktop, the practice model, and the agents");
  for (const char* agent : {"Signals", "ClassifierVerify", "CoachDriver"}) startAgent(agent);
  live_ = std::make_unique<LiveLog>(dataRoot());
}

void Scene::startAgent(const std::string& name) {
  const auto file = work_ / "logs" / (name + ".log");
  const FileHandle log(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  programs_[name] = test::ChildProcess((bin_ / name).string(), {}, environment_, {{log.fd(), 1}, {log.fd(), 2}});
}

void Scene::command(const std::string& program, const std::vector<std::string>& words) {
  test::ChildProcess child((bin_ / program).string(), words, environment_, {{1, 1}, {2, 2}});
  const auto status = child.wait(20);
  if (status != 0) throw std::runtime_error(program + " failed");
}

void Scene::showNews() {
  if (!live_) return;
  for (const auto& line : live_->poll())
    if (line.kind != LiveLog::Kind::other) print("    " + LiveLog::render(line, calendar_));
}

void Scene::expect(const std::string& what, double seconds, const std::function<bool()>& holds) {
  const auto clock = Clock::system();
  const auto deadlineMs = clock.nowMs() + static_cast<std::int64_t>(seconds * 1000);
  for (bool held = false; !held; clock.wait(0.2, {})) {
    // Asked before the news are shown, so that what made it true is among them.
    held = holds();
    showNews();
    if (!held && clock.nowMs() > deadlineMs) throw std::runtime_error(what + " did not come in time");
  }
}

void Scene::lockSession() {
  bus_->proxy(saver, saverPath)
      ->callMethod("AddMethod")
      .onInterface(mockInterface)
      .withArguments(std::string(saver), std::string("GetActive"), std::string(), std::string("b"), std::string("ret = True"));
  bus_->proxy(saver, saverPath)
      ->callMethod("EmitSignal")
      .onInterface(mockInterface)
      .withArguments(std::string(saver), std::string("ActiveChanged"), std::string("b"), arguments(true));
}

std::vector<EventLogEvent> Scene::events() const {
  try {
    return EventLogReader::read(DataPaths::events(dataRoot()));
  } catch (const std::system_error&) {
    return {};
  }
}

std::optional<std::int64_t> Scene::eventTime(const std::string& type, const std::function<bool(const EventLogEvent&)>& accepts) const {
  for (const auto& event : events())
    if (event.type == type && accepts(event)) return event.tsMs;
  return std::nullopt;
}

bool Scene::sawVerdict(const std::string& state, const std::string& app) const {
  try {
    const auto ticks = ClassifierLogReader::read(DataPaths::checkerLog(dataRoot()));
    return std::any_of(ticks.begin(), ticks.end(), [&](const ClassifierTick& tick) { return tick.state == state && tick.frontmostApp == app; });
  } catch (const std::system_error&) {
    return false;
  }
}

bool Scene::verify() {
  const auto checkinMs = eventTime("coach_checkin", [](const auto&) { return true; });
  auto messageAt = [&](const char* role, std::int64_t fromMs) {
    return eventTime("app_chat_message", [=](const EventLogEvent& event) {
      return event.tsMs >= fromMs && event.text("role") && *event.text("role") == role && event.text("text") && !event.text("text")->empty();
    });
  };
  const auto saidMs = messageAt("user", 0);
  const auto recordedMs = eventTime("task_declared", [](const EventLogEvent& event) {
    return event.source == "coach-core" && event.detail.objectValue() && event.detail.objectValue()->integer("horizon_minutes") == answerMinutes;
  });
  const auto decisionMs = eventTime("coach_decision", [](const EventLogEvent& event) {
    const auto* name = event.detail.at({"tool_calls", "0", "name"});
    return name && name->stringValue() && *name->stringValue() == "write_current_intention";
  });
  const std::vector<std::pair<const char*, bool>> facts{
      {"an ON_TASK verdict on the editor", sawVerdict("ON_TASK", "Gedit")},
      {"a NOT_ALIGNED verdict on the video site", sawVerdict("NOT_ALIGNED", "firefox")},
      {"an IDLE verdict on the locked session", sawVerdict("IDLE", "loginwindow")},
      {"a check-in, with words", checkinMs && messageAt("coach", *checkinMs) == checkinMs},
      {"the person's answer, after it", checkinMs && saidMs && *saidMs > *checkinMs},
      {"Lark's answer to that", saidMs && messageAt("coach", *saidMs)},
      {"the new intention of 20 minutes, recorded by the tool call", saidMs && recordedMs && decisionMs == recordedMs && *recordedMs > *saidMs},
  };
  print("* read back from the files");
  bool all = true;
  for (const auto& [what, isThere] : facts) {
    print(std::string(isThere ? "    yes  " : "    NO   ") + what);
    all = all && isThere;
  }
  return all;
}

}  // namespace halvo
