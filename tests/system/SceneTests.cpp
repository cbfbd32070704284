// The scene with the real programs: twice in a row, with programs killed on the way, and what it leaves on the disk and on the wire.

#include <gtest/gtest.h>

#include <csignal>
#include <map>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/PracticeModel/PracticeDialect.h"
#include "tools/Scene/Scene.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::Household;

/// Every line of every log under the data root is one whole row, and the database is sound.
void expectWholeRows(const fs::path& dataRoot) {
  int rows = 0;
  for (const auto& entry : fs::recursive_directory_iterator(dataRoot)) {
    if (entry.path().extension() != ".jsonl") continue;
    const auto text = readFile(entry.path());
    for (const auto line : Text::split(text, '\n')) {
      if (line.empty()) continue;
      ++rows;
      const auto row = JSONValue::parse(line);
      EXPECT_TRUE(row && row->objectValue()) << entry.path() << ": " << line;
      EXPECT_TRUE(entry.path().filename() != "events.jsonl" || EventLogReader::decode(line)) << line;
    }
  }
  EXPECT_GE(rows, 10);
  SQLiteDB db(dataRoot / "signals.sqlite", SQLiteDB::Role::reader);
  auto check = db.prepare("PRAGMA integrity_check");
  ASSERT_TRUE(check.step());
  EXPECT_EQ(check.optionalText(0), "ok");
}

TEST(SceneUnderKills, theOthersGoOnAndNothingIsSaidTwice) {
  const test::TemporaryFolder folder;
  for (const char* victim : {"Signals", "ClassifierVerify", "CoachDriver", "PracticeModel"}) {
    SCOPED_TRACE(victim);
    int kills = 0;
    Scene scene({.bin = HALVO_BIN,
                 .work = folder.path() / victim,
                 .isSilent = true,
                 .between = [&](Scene::Step step, Household& house) {
                   if (step != Scene::Step::onTask && step != Scene::Step::notAligned && step != Scene::Step::said) return;
                   house.program(victim).signal(SIGKILL);
                   kills += house.program(victim).wait(5) == 128 + SIGKILL;
                   victim == std::string("PracticeModel") ? house.startModel() : house.start(victim);
                 }});
    EXPECT_TRUE(scene.play());
    EXPECT_EQ(kills, 3);
    expectWholeRows(scene.dataRoot());

    std::map<std::string, int> said;
    int checkins = 0;
    for (const auto& event : EventLogReader::read(scene.dataRoot() / "io-layer/events.jsonl")) {
      checkins += event.type == "coach_checkin";
      if (const auto* role = event.text("role"); event.type == "app_chat_message" && role && *role == "coach") ++said[*event.text("text")];
    }
    EXPECT_EQ(checkins, 1);
    for (const auto& [words, times] : said) EXPECT_EQ(times, 1) << words;
  }
}

TEST(SceneProgram, passesTwiceInARowAlsoWithTheOtherCoreBusy) {
  const test::TemporaryFolder folder;
  test::ChildProcess busy;
  for (const bool isBusy : {false, true}) {
    if (isBusy) busy = test::ChildProcess("sh", {"-c", "while :; do :; done"}, processEnvironment());
    test::ChildProcess scene(std::string(HALVO_BIN) + "/Scene", {"--bin", HALVO_BIN, "--work", (folder.path() / "scene").string()},
                             processEnvironment());
    EXPECT_EQ(scene.wait(90), 0) << (isBusy ? "with a busy core" : "alone");
  }
}

/// The practice model with a note of what it was asked.
class ListeningModel {
 public:
  std::string url() const { return server_.baseURL(); }
  std::vector<test::LoopbackServer::Request> requests() const { return server_.requests(); }

 private:
  void answer(const test::LoopbackServer::Request& request, test::LoopbackServer::Connection& connection) {
    const auto answer = dialect_.answer({.method = request.head.substr(0, request.head.find(' ')),
                                         .path = request.path(),
                                         .body = request.body,
                                         .nowMs = Clock::system().nowMs()});
    std::string body = answer.body;
    for (const auto& event : answer.events) body += event;
    const auto* type = answer.events.empty() ? "application/json" : "text/event-stream";
    connection.send(fmt::format("HTTP/1.1 {} practice\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n\r\n{}",
                                answer.status, type, body.size(), body));
  }

  PracticeDialect dialect_{{}, {}, Clock::system().nowMs()};
  test::LoopbackServer server_{[this](const auto& request, auto& connection) { answer(request, connection); }};
};

/// Whether a file begins as a picture does.
bool isPicture(const fs::path& file) {
  const auto start = FileHandle::openForRead(file).readAt(0, 12);
  for (const std::string_view mark : {"\x89PNG", "\xFF\xD8\xFF", "GIF8", "BM", "II*", "P5\n", "P6\n"})
    if (start.starts_with(mark)) return true;
  return start.starts_with("RIFF") && start.ends_with("WEBP");
}

/// What holds for every file of the household at any time.
void expectPrivate(const fs::path& work, const std::vector<std::string>& secrets) {
  for (const auto& entry : fs::recursive_directory_iterator(work)) {
    struct stat status {};
    if (::lstat(entry.path().c_str(), &status) != 0) continue;  // gone meanwhile
    EXPECT_EQ(status.st_mode & 07777, S_ISDIR(status.st_mode) ? 0700u : 0600u) << entry.path();
    if (!S_ISREG(status.st_mode)) continue;
    EXPECT_FALSE(isPicture(entry.path())) << entry.path();
    const auto bytes = readFile(entry.path());
    for (const auto& secret : secrets) EXPECT_EQ(bytes.find(secret), std::string::npos) << entry.path();
  }
}

TEST(ScenePrivacy, noPictureAndNoCardNumberIsKeptOrSent) {
  const test::TemporaryFolder folder;
  const ListeningModel model;
  const std::vector<std::string> secrets{"4111 1111 1111 1111", "4111111111111111", "4111-1111-1111-1111"};
  Scene scene({.bin = HALVO_BIN,
               .work = folder.path() / "scene",
               .isSilent = true,
               .windowText = "Pay with card 4111 1111 1111 1111 today",
               .between = [&](Scene::Step, Household& house) { expectPrivate(house.work(), secrets); },
               .more = {{"AMBITCAP_LOCAL_INFERENCE_ENDPOINT", model.url()}, {"AMBITCAP_DUMP_REQUESTS", "1"}}});
  EXPECT_TRUE(scene.play());
  expectPrivate(folder.path() / "scene", secrets);

  bool sawItRedacted = false;
  for (const auto& request : model.requests()) {
    for (const auto& secret : secrets) EXPECT_EQ(request.body.find(secret), std::string::npos) << request.body.substr(0, 2000);
    sawItRedacted = sawItRedacted || request.body.find("Pay with card [redacted card number]") != std::string::npos;
  }
  EXPECT_TRUE(sawItRedacted) << "else the window was never read";
}

TEST(SceneRemote, whatGoesOutIsRedactedAndTheKeyStaysInItsHeader) {
  const test::TemporaryFolder folder;
  const std::vector<std::string> secrets{"4111 1111 1111 1111", "hunter2hunter2"};
  Scene scene({.bin = HALVO_BIN,
               .work = folder.path() / "scene",
               .isSilent = true,
               .isRemote = true,
               .between = [&](Scene::Step step, Household& house) {
                 if (step != Scene::Step::onTask) return;
                 house.run("halvo", {"declare", "pay 4111 1111 1111 1111, password: hunter2hunter2"});
               },
               .more = {{"AMBITCAP_DUMP_REQUESTS", "1"}}});
  EXPECT_TRUE(scene.play());
  int sent = 0, redacted = 0;
  for (const auto& request : scene.sentOut()) {
    redacted += request.body.find("pay [redacted card number]") != std::string::npos;
    sent += request.path.ends_with("/chat/completions");
    EXPECT_EQ(request.body.find(RemoteCoach::apiKey), std::string::npos);
    EXPECT_EQ(request.body.find("image_url"), std::string::npos) << "text alone leaves the machine";
    for (const auto& secret : secrets) EXPECT_EQ(request.body.find(secret), std::string::npos) << secret;
  }
  EXPECT_GE(sent, 4);
  EXPECT_GT(redacted, 0) << "else it was never told";
  expectPrivate(folder.path() / "scene", {RemoteCoach::apiKey});
}

TEST(SceneQuiet, anHourOfQuietIsKeptAndALessonReachesTheNextPrompt) {
  const test::TemporaryFolder folder;
  bool isInPrompt = false;
  {
    Scene scene({.bin = HALVO_BIN, .work = folder.path() / "scene", .isSilent = true, .isQuiet = true, .more = {{"AMBITCAP_DUMP_REQUESTS", "1"}}});
    EXPECT_TRUE(scene.play());
  }
  // The programs are gone, so no file comes or goes any more.
  for (const auto& dump : fs::directory_iterator(folder.path() / "scene/data/model-request-dumps"))
    isInPrompt = isInPrompt || readFile(dump.path()).find("don't ask what my first step is") != std::string::npos;
  EXPECT_TRUE(isInPrompt);
}

}  // namespace
}  // namespace halvo
