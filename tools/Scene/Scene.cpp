#include "tools/Scene/Scene.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <unistd.h>

#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

namespace {

constexpr const char* answer = "ok im switching to laundry for 20 min";
constexpr int answerMinutes = 20;

}  // namespace

Scene::Scene(Options options) : options_(std::move(options)) {}

void Scene::print(const std::string& line) const {
  if (options_.isSilent) return;
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

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
        desktop_->screen.display(), test::TestWindow::Options{.title = "the essay - draft 2 - Text Editor",
                                                              .className = "Gedit",
                                                              .width = 700,
                                                              .height = 500,
                                                              .text = "The essay: why the bridge at Arta took so long to build",
                                                              .textScale = 2});
    editor_->activate();
    expect("an ON_TASK verdict on the editor", 60, [&] { return household_->sawVerdict("ON_TASK", "Gedit"); });
    reached(Step::onTask);

    print("* drifting to a video site");
    videoSite_ = std::make_unique<test::TestWindow>(
        desktop_->screen.display(), test::TestWindow::Options{.title = "Ten cats falling off things - YouTube - Mozilla Firefox",
                                                              .className = "firefox",
                                                              .x = 150,
                                                              .width = 900,
                                                              .height = 600,
                                                              .text = options_.windowText,
                                                              .textScale = 2});
    videoSite_->activate();
    expect("a NOT_ALIGNED verdict on the video site", 60, [&] { return household_->sawVerdict("NOT_ALIGNED", "firefox"); });
    reached(Step::notAligned);
    // A gate call that is lost with its server is made again within a minute.
    expect("Lark's question", 130, [&] { return household_->eventTime("coach_checkin").has_value(); });
    reached(Step::asked);

    print("* answering");
    const auto saidMs = Clock::system().nowMs();
    command("halvo", {"say", answer});
    reached(Step::said);
    expect("Lark's answer", 100, [&] { return household_->messageTime("coach", saidMs).has_value(); });
    reached(Step::answered);
    if (remote_) loseTheService();
    if (options_.isQuiet) {
      beLeftAlone();
      teach();
    }

    print("* the session locks");
    desktop_->lockSession();
    expect("an IDLE verdict", 60, [&] { return household_->sawVerdict("IDLE", "loginwindow"); });
    reached(Step::locked);

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
  desktop_ = std::make_unique<test::Desktop>();
  household_ = std::make_unique<test::Household>(options_.bin, options_.work, *desktop_);
  household_->startModel();
  if (options_.isRemote) {
    remote_ = std::make_unique<RemoteCoach>();
    for (const auto& [key, setting] : remote_->environment()) household_->environment[key] = setting;
  }
  for (const auto& [key, setting] : options_.more) household_->environment[key] = setting;
  print(std::string("* a private desktop, the practice model") + (remote_ ? ", a remote service of our own" : "") + ", and the agents");
  for (const char* agent : {"Signals", "ClassifierVerify", "CoachDriver"}) household_->start(agent);
  live_ = std::make_unique<LiveLog>(dataRoot());
}

void Scene::loseTheService() {
  print("* the remote service dies in the middle of a reply");
  remote_->dieInTheNextReply();
  const auto saidMs = Clock::system().nowMs();
  command("halvo", {"say", "thanks"});
  expect("an answer from the fallback", 60, [&] { return household_->messageTime("coach", saidMs).has_value(); });
  reached(Step::fellBack);
}

std::vector<test::RemoteService::Request> Scene::sentOut() const {
  return remote_ ? remote_->requests() : std::vector<test::RemoteService::Request>();
}

void Scene::reached(Step step) {
  if (options_.between) options_.between(step, *household_);
}

void Scene::command(const std::string& program, const std::vector<std::string>& words) {
  const auto output = options_.isSilent ? std::nullopt : std::optional(STDOUT_FILENO);
  if (household_->run(program, words, output) != 0) throw std::runtime_error(program + " failed");
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

std::vector<std::pair<const char*, bool>> Scene::facts() const {
  const auto& files = *household_;
  const auto checkinMs = files.eventTime("coach_checkin");
  const auto saidMs = files.messageTime("user");
  const auto recordedMs = files.eventTime("task_declared", [](const EventLogEvent& event) {
    return event.source == "coach-core" && event.detail.objectValue() && event.detail.objectValue()->integer("horizon_minutes") == answerMinutes;
  });
  const auto decisionMs = files.eventTime("coach_decision", [](const EventLogEvent& event) {
    const auto* name = event.detail.at({"tool_calls", "0", "name"});
    return name && name->stringValue() && *name->stringValue() == "write_current_intention";
  });
  return {
      {"an ON_TASK verdict on the editor", files.sawVerdict("ON_TASK", "Gedit")},
      {"a NOT_ALIGNED verdict on the video site", files.sawVerdict("NOT_ALIGNED", "firefox")},
      {"an IDLE verdict on the locked session", files.sawVerdict("IDLE", "loginwindow")},
      {"a check-in, with words", checkinMs && files.messageTime("coach", *checkinMs) == checkinMs},
      {"the person's answer, after it", checkinMs && saidMs && *saidMs > *checkinMs},
      {"Lark's answer to that", saidMs && files.messageTime("coach", *saidMs)},
      {"the new intention of 20 minutes, recorded by the tool call", saidMs && recordedMs && decisionMs == recordedMs && *recordedMs > *saidMs},
  };
}

std::vector<std::pair<const char*, bool>> Scene::remoteFacts() const {
  const auto servedBy = [](const char* who, bool isFallback) {
    return [=](const EventLogEvent& event) {
      const auto* by = event.text("served_by");
      const auto* fellBack = event.detail.find("served_by_fallback");
      return by && *by == who && (fellBack && fellBack->boolValue() == true) == isFallback;
    };
  };
  const auto told = [&] {
    LiveLog log(dataRoot());
    const auto line = disclosureLine(FallbackCause::unreachable, "the local model");
    for (const auto& shown : log.poll())
      if (shown.kind == LiveLog::Kind::coach && shown.text.find(line) != std::string::npos) return true;
    return false;
  };
  const auto paid = [&] {
    const auto rows = TurnUsageRecordLog::read(TurnUsageRecordLog::defaultURL(dataRoot()), 100);
    return std::any_of(rows.begin(), rows.end(), [](const TurnUsageRecord& row) { return row.layer == "coach" && row.costUSD && row.provider; });
  };
  return {
      {"what it cost and who gave it, in the usage log", paid()},
      {"an answer of the remote service", household_->eventTime("app_chat_message", servedBy("openrouter", false)).has_value()},
      {"the service's end in the middle of a reply", remote_->isDead()},
      {"an answer of the fallback behind it", household_->eventTime("app_chat_message", servedBy("the local model", true)).has_value()},
      {"the line that says so, beside it", told()},
  };
}

bool Scene::verify() {
  auto all = facts();
  if (remote_)
    for (const auto& fact : remoteFacts()) all.push_back(fact);
  if (options_.isQuiet)
    for (const auto& fact : quietFacts()) all.push_back(fact);
  print("* read back from the files");
  bool passed = true;
  for (const auto& [what, isThere] : all) {
    print(std::string(isThere ? "    yes  " : "    NO   ") + what);
    passed = passed && isThere;
  }
  return passed;
}

}  // namespace halvo
