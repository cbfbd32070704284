#include "agents/ClassifierVerify/ClassifierLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Signals/SignalsNotes.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/AmbitudeCore/Classifier/ScriptedModel.h"
#include "tests/AmbitudeCore/Classifier/SignalsScene.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

/// A loop over real files, with the machine and the model in the test's hands.
class ClassifierLoopTest : public testing::Test {
 protected:
  ClassifierLoopTest() {
    fs::create_directory(root / "io-layer");
    model.answer = [this](const std::string& question) -> std::optional<std::string> {
      if (isDown) return std::nullopt;
      if (question == "props") return JSONValue(JSONObject{{"model_path", served}}).dump();
      if (question == "image") return "a page about cats";
      if (question.starts_with(test::readsEstimate)) return R"({"has_estimate": false})";
      return R"({"state": "NOT_ALIGNED", "confidence": 0.9, "reason": "you look at cats"})";
    };
    inFront("Fox", "Cats - Fox");
  }

  ClassifierLoop& loop() {
    if (!made)
      made.emplace(ClassifierLoop::World{
          .clock = {.nowMs = [this] { return now; }, .wait = [](double, const std::stop_token&) {}},
          .calendar = Calendar::named("America/New_York"),
          .environment = environment,
          .probes = probes,
          .screen = screen,
          .recognizer = recognizer,
          .power = power,
          .transport = model,
          .inferenceBaseURL = "http://127.0.0.1:9",
          .integritySubject = [this](std::string name) {
            subject.model = std::move(name);
            return subject;
          },
          .dataRoot = [this] { return isMounted ? std::optional(root) : std::nullopt; },
          .dataRootUnavailableReason = [] { return "configured data root (/x) isn't mounted"; },
          .taskFileBody = [] { return std::optional<std::string>(); },
          .log = [this](const std::string& line) { log.push_back(line); }});
    return *made;
  }
  /// A pass `seconds` later, with fresh signals.
  void pass(std::int64_t seconds = 5) {
    now += seconds * 1000;
    scene.sample(now, {.app = app});
    scene.window(now, app, title);
    loop().pass({});
  }
  void inFront(const std::string& name, const std::string& windowTitle) {
    app = name;
    title = windowTitle;
    probes.now.frontmostApp = FrontmostApp{.name = name};
    probes.now.windows = std::vector{WindowInfo{.ownerName = name, .title = windowTitle, .bounds = {100, 100, 400, 300}}};
  }
  void declare(const std::string& task) {
    EventLogWriter::append({.tsMs = now, .type = "task_declared", .detail = JSONObject{{"task", task}}}, root / "io-layer/events.jsonl");
  }
  std::vector<ClassifierTick> rows() const {
    return fs::exists(root / "checker-log.jsonl") ? ClassifierLogReader::read(root / "checker-log.jsonl") : std::vector<ClassifierTick>{};
  }
  std::optional<ClassifierCadence::State> cadence() const { return ClassifierCadence::read(root / "classifier-cadence.json"); }
  auto logged(const std::string& part) const {
    return std::count_if(log.begin(), log.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }

  test::TemporaryFolder folder;
  fs::path root = folder.path();
  test::SignalsScene scene{root / "signals.sqlite"};
  Environment environment;
  FakeDesktopProbes probes;
  FakeScreenCapture screen;
  std::shared_ptr<FakeTextRecognizer> recognizer = std::make_shared<FakeTextRecognizer>();
  FakePowerSource power;
  ModelIntegrityCheck::Subject subject{.modelsDirectory = folder.path(), .refusalNote = folder.path() / "refusal.json"};
  std::string served = "somebody's.gguf";
  test::ScriptedModel model;
  std::vector<std::string> log;
  std::optional<ClassifierLoop> made;
  std::int64_t now = 1'700'000'000'000;
  std::string app, title;
  bool isDown = false, isMounted = true;
};

TEST_F(ClassifierLoopTest, judgesWhenItIsDueAndOnlyThen) {
  declare("write the essay");
  recognizer->outcome = TextRecognizer::Recognized{"cats, card 4111 1111 1111 1111"};
  pass();
  ASSERT_EQ(rows().size(), 1u);
  const auto row = rows()[0];
  EXPECT_EQ(row.state, "NOT_ALIGNED");
  EXPECT_EQ(row.at, "2023-11-14T17:13:25.000-05:00");
  EXPECT_EQ(row.frontmostWindowTitle, "Cats - Fox");
  EXPECT_EQ(row.screenshotAtMs, now);
  EXPECT_EQ(row.declaredTask, "Task: write the essay\nDeclared: 2023-11-14 5:13pm ET");
  EXPECT_EQ(row.reasonCheck, "replaced_no_verdict") << "a number on the screen has the sentence checked";
  EXPECT_EQ(screen.captured, (std::vector<Rect>{{100, 100, 400, 300}}));
  const auto described = JSONValue::parse(readFile(root / "classifier-describe.jsonl"));
  EXPECT_EQ(described->objectValue()->string("text"), "a page about cats");
  for (const auto& line : log) EXPECT_EQ(line.find("ats"), std::string::npos) << "a log line tells of the screen: " << line;

  const auto judged = cadence();
  pass();
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_EQ(cadence(), ClassifierCadence::heartbeat(*judged, now));
  declare("look at cats");
  inFront("Fox", "More cats - Fox");
  pass();
  ASSERT_EQ(rows().size(), 2u);
  EXPECT_TRUE(rows()[1].declaredTask->starts_with("Task: look at cats"));
  const auto calls = model.requests.size();
  inFront("Halvo", "Lark");
  pass();
  EXPECT_EQ(rows().back().state, "ABSTAINED");
  EXPECT_EQ(rows().back().model, std::nullopt);
  EXPECT_EQ(model.requests.size(), calls);
  made.reset();
  pass();
  EXPECT_EQ(rows().size(), 3u) << "a restart inside the interval judges nothing";
}

TEST_F(ClassifierLoopTest, samplesOfBeforeAPauseOfTheRecordingAreNotJudged) {
  scene.sample(now, {.app = app});
  RecordingControls{}.paused(now + 10'000, std::nullopt).write(root);
  now += 20'000;
  loop().pass({});
  EXPECT_TRUE(rows().empty());
  EXPECT_EQ(logged("recording is paused (since 2023-11-14T22:13:30Z)"), 1);
  pass();
  EXPECT_EQ(rows().size(), 1u) << "the sampler goes on, and so do judgments";
}

TEST_F(ClassifierLoopTest, aModelThatIsDownLeavesNoTraceButOneLine) {
  isDown = true;
  for (int i = 0; i < 5; ++i) pass();
  EXPECT_TRUE(rows().empty());
  EXPECT_EQ(cadence(), std::nullopt);
  EXPECT_EQ(logged("REFUSING TO JUDGE"), 1);
  EXPECT_TRUE(screen.captured.empty()) << "for a server that can't be asked the screen is not looked at";
  isDown = false;
  pass();
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_EQ(logged("answers again"), 1);
}

TEST_F(ClassifierLoopTest, onlyTheModelThatWasDownloadedSeesTheScreen) {
  const auto artifact = [](const char* file) {
    return LocalModelStore::Artifact{.fileName = file, .sha256 = Digest::sha256Hex(file), .bytes = static_cast<std::int64_t>(strlen(file))};
  };
  subject.manifest = LocalModelStore::Manifest{.model = "m", .weights = artifact("weights"), .projector = artifact("projector")};
  const auto weights = folder.path() / "weights", projector = folder.path() / "projector";
  const auto download = [&] {
    folder.write("weights", "weights"), folder.write("projector", "projector");
    LocalModelStore::verify(*subject.manifest, folder.path());
  };
  const struct { const char *name, *refusal; std::function<void()> begin; std::optional<ModelIntegrityGuard::Kind> note; } cases[] = {
      {"another listener", "the local server is serving /other.gguf, not the verified ", [&] { served = "/other.gguf"; },
       ModelIntegrityGuard::Kind::modelReplaced},
      {"a changed file", "files changed on disk since they were verified (projector)",
       [&] { fs::last_write_time(projector, fs::file_time_type::clock::now() - std::chrono::hours(1)); },
       ModelIntegrityGuard::Kind::modelReplaced},
      {"a missing file", "isn't downloaded, so there is nothing verified to judge with", [&] { fs::remove(weights); }, std::nullopt},
      {"no path in the answer", "llama-server /props carried no model_path: ", [&] { served = ""; }, ModelIntegrityGuard::Kind::cannotVerify},
      {"no answer", "(Error Domain=NSURLErrorDomain Code=-1004", [&] { isDown = true; }, ModelIntegrityGuard::Kind::cannotVerify},
  };
  declare("write the essay");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    isDown = false, served = weights.string();
    download();
    fs::remove(subject.refusalNote);
    made.reset();  // every case begins afresh
    const auto before = rows().size(), pictures = screen.captured.size();
    c.begin();
    pass(600), pass();
    EXPECT_EQ(logged(c.refusal), 1);
    EXPECT_EQ(screen.captured.size(), pictures) << "no picture was taken";
    EXPECT_EQ(rows().size(), before);
    const auto note = ModelIntegrityGuard::readRefusalNote(subject.refusalNote);
    EXPECT_EQ(note ? std::optional(note->kind) : std::nullopt, c.note);
    EXPECT_EQ(note ? note->atMs : now - 5000, now - 5000) << "since when, not how often";
    isDown = false, served = (folder.path() / "link.gguf").string();
    download();
    std::error_code isThere;
    fs::create_symlink(weights, folder.path() / "link.gguf", isThere);
    pass();
    EXPECT_EQ(screen.captured.size(), pictures + 1) << "and one as soon as all is well";
    EXPECT_EQ(rows().size(), before + 1);
    EXPECT_FALSE(fs::exists(subject.refusalNote));
  }
  subject.manifest.reset();
  made.reset();
  isDown = false, served = "/x\n[2J.gguf";
  const auto before = rows().size();
  pass(600), pass(600);
  EXPECT_EQ(rows().size(), before + 2);
  EXPECT_EQ(logged("has no Halvo download to verify against (custom AMBITCHECK_MODEL?); the server reports /x [2J.gguf — judging"), 2);
}

TEST_F(ClassifierLoopTest, judgesNothingFromOldSignals) {
  pass();
  const auto lastGood = now;
  for (int i = 0; i < 60; ++i) {
    now += 5000;
    loop().pass({});
  }
  EXPECT_EQ(logged("signals stale since"), 1);
  EXPECT_EQ(rows().back().at, "2023-11-14T17:15:25.000-05:00") << "judged as long as the rows were fresh";
  const auto note = SignalsStaleNoteStore::read(SignalsStaleNoteStore::url(root));
  ASSERT_TRUE(note);
  EXPECT_EQ(note->lastGoodTickAtMs, lastGood);
  EXPECT_EQ(cadence()->lastRanAtMs, now) << "it is alive all the same";
  pass();
  EXPECT_FALSE(fs::exists(SignalsStaleNoteStore::url(root)));

  const auto before = rows().size();
  now += 8 * 3600 * 1000;
  loop().pass({});
  EXPECT_EQ(rows().size(), before) << "just awake: the rows are of another time";
  EXPECT_EQ(logged("signals stale since"), 1) << "and the sampler is not accused";
}

TEST_F(ClassifierLoopTest, restsOnBatteryWhenTold) {
  environment["AMBITCAP_CLASSIFY_REQUIRE_AC"] = "1";
  power.power.isPluggedIn = false;
  pass();
  pass();
  EXPECT_TRUE(rows().empty());
  EXPECT_TRUE(cadence()->pausedForPower);
  EXPECT_EQ(logged("on battery -- classifier paused (AMBITCAP_CLASSIFY_REQUIRE_AC)"), 1);
  power.power.isPluggedIn = true;
  pass();
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_FALSE(cadence()->pausedForPower);
}

TEST_F(ClassifierLoopTest, troubleIsToldOnceAndNothingIsDamaged) {
  isMounted = false;
  pass();
  pass();
  EXPECT_EQ(logged("isn't mounted"), 1);
  EXPECT_EQ(cadence(), std::nullopt);
  isMounted = true;
  std::error_code ignored;
  fs::create_directory(root / "checker-log.jsonl");  // no row can be appended to a folder
  pass();
  pass();
  EXPECT_EQ(logged("checker-log.jsonl not written"), 1);
  EXPECT_EQ(cadence(), std::nullopt) << "without its row a judgment does not count";
  EXPECT_EQ(screen.captured.size(), 1u) << "and no other is asked for at once";
  fs::remove(root / "checker-log.jsonl", ignored);
  pass(60);
  EXPECT_EQ(rows().size(), 1u);

  const auto damaged = folder.path() / "other";
  fs::create_directory(damaged);
  folder.write("other/signals.sqlite", "this is no database, but it is somebody's");
  root = damaged;
  now += 5000;
  loop().pass({});
  loop().pass({});
  EXPECT_EQ(logged("signals.sqlite can't be read"), 1);
  EXPECT_EQ(readFile(damaged / "signals.sqlite"), "this is no database, but it is somebody's");
}

TEST(ClassifierLoop, loopSec) {
  const std::pair<const char*, double> cases[] = {{"0.2", 0.2}, {" 2 ", 2}, {"60", 60}, {"0.1", 5},
                                                  {"61", 5},    {"", 5},    {"1s", 5},  {"nan", 5}};
  for (const auto& [text, want] : cases) EXPECT_EQ(ClassifierLoop::loopSec({{"AMBITCHECK_LOOP_SEC", text}}), want) << text;
  EXPECT_EQ(ClassifierLoop::loopSec({}), 5);
}

}  // namespace
}  // namespace halvo
