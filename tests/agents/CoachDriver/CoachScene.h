#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "agents/CoachDriver/CoachDriverLoop.h"
#include "tests/AmbitudeCore/Coach/ScriptedBackend.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A data root of its own, a clock that moves when it is waited on, a model in the test's hands.
struct CoachScene {
  CoachScene() {
    std::filesystem::create_directories(root / "io-layer");
    pinFloor();
    backend.answer = [this](const ScriptedBackend::Call& call, const std::stop_token&) {
      return ChatResponse{.text = call.isGate() ? gateAnswer : coachAnswer,
                          .toolCalls = call.isGate() ? std::vector<ToolCall>{} : coachCalls};
    };
  }

  CoachSurroundings surroundings() {
    return {.dataRoot = root,
            .backend = &backend,
            .environment = environment,
            .callHoldOverride = folder.path() / "no-override",
            .clock = {[this] { return nowMs.load(); },
                      [this](double sec, const std::stop_token&) {
                        if (whileWaiting) whileWaiting();
                        nowMs += static_cast<std::int64_t>(sec * 1000);
                      }},
            .calendar = GateScene::calendar,
            .log = [this](const std::string& line) { log.push_back(line); },
            .intentionSinks = {.writeTaskFile = [this](const std::string& body) { taskFile = body; },
                               .logSQLite = [this](const IntentionWriter::Record& record) { copied.push_back(record.type); }}};
  }

  void pinFloor() const {
    folder.write("data/io-layer/layer3-floor.json", JSONValue(JSONObject{{"floorTsMs", GateScene::at(6, 0)}}).dump());
  }
  void add(const EventLogEvent& event) const { EventLogWriter::append(event, DataPaths::events(root), "test", "1"); }
  void tick(std::string state = "NOT_ALIGNED") const {
    JSONLAppend::append(std::string_view(GateScene::tick(nowMs, std::move(state), "Steam", "a game is open").encode()),
                        root / "checker-log.jsonl");
  }
  std::vector<EventLogEvent> events() const {
    return std::filesystem::exists(DataPaths::events(root)) ? EventLogReader::read(DataPaths::events(root)) : std::vector<EventLogEvent>{};
  }
  int count(std::string_view type, std::string_view role = "") const {
    int found = 0;
    for (const auto& event : events()) found += event.type == type && (role.empty() || (event.text("role") && *event.text("role") == role));
    return found;
  }
  int coachMessages() const { return count("app_chat_message", "coach"); }
  int logged(std::string_view beginning) const {
    int found = 0;
    for (const auto& line : log) found += line.starts_with(beginning);
    return found;
  }
  std::size_t calls() const { return backend.calls().size(); }

  TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::atomic<std::int64_t> nowMs = GateScene::at(15, 0);
  std::function<void()> whileWaiting;
  ScriptedBackend backend;
  std::string gateAnswer = R"({"summary_for_coach":"in Steam","should_check_in":true})", coachAnswer = "Still the essay?";
  std::vector<ToolCall> coachCalls;
  Environment environment{{"AMBITCAP_LAYER3", "1"}, {"AMBITCAP_GATE_LOG", "1"}};
  std::vector<std::string> log, copied;
  std::string taskFile;
};

}  // namespace halvo::test
