// The program itself with the sampler beside it, on a real display, asking a real socket.

#include <algorithm>
#include <atomic>
#include <csignal>

#include <gtest/gtest.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::eventually;

class ClassifierVerifyProgramTest : public testing::Test {
 protected:
  ClassifierVerifyProgramTest() { fs::create_directories(root / "io-layer"); }

  test::ChildProcess start(const std::string& program, const std::string& display) {
    const Environment more{{"DISPLAY", display},
                           {"AMBITCAP_LOCAL_INFERENCE_ENDPOINT", server.baseURL()},
                           // The coach's choice, which is no business of what sees the screen.
                           {"AMBITCAP_MODEL_BACKEND", "openrouter"},
                           {"OPENROUTER_API_KEY", "sk-or-v1-not-for-pictures"},
                           {"AMBITCAP_MODEL_ENDPOINT", coachsServer.baseURL()},
                           {"AMBITCAP_PROXY_URL", coachsServer.baseURL()},
                           {"AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC", "1"},
                           {"AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC", "2"},
                           {"AMBITCHECK_MODEL", "a-model-of-my-own"},
                           {"AMBITCHECK_LOOP_SEC", "0.2"}};
    return test::ChildProcess::logged(std::string(HALVO_BIN) + "/" + program, {}, test::programEnvironment(folder.path(), root, more),
                                      folder.path() / (program + ".log"));
  }
  std::vector<ClassifierTick> rows() const {
    return fs::exists(root / "checker-log.jsonl") ? ClassifierLogReader::read(root / "checker-log.jsonl") : std::vector<ClassifierTick>{};
  }
  /// The newest row that was judged from `app` in front.
  std::optional<ClassifierTick> rowOf(const std::string& app) const {
    auto found = std::optional<ClassifierTick>();
    for (const auto& row : rows())
      if (row.frontmostApp == app) found = row;
    return found;
  }
  /// Over two further rows.
  void expectNoPictures() const {
    const auto before = pictures.load();
    const auto count = rows().size();
    ASSERT_TRUE(eventually([&] { return rows().size() >= count + 2; }, 20));
    EXPECT_EQ(pictures, before);
  }
  void answer(const test::LoopbackServer::Request& request, test::LoopbackServer::Connection& connection) {
    if (request.path() == "/props") return connection.send(test::LoopbackServer::answer(R"({"model_path": "/a/model.gguf"})"));
    const bool isPicture = request.body.find("image_url") != std::string::npos;
    pictures += isPicture;
    if (mayHang && !isPicture) {
      isHanging = true;
      return connection.hang();
    }
    const std::string text = isPicture ? "someone writes" : R"({"state": "ON_TASK", "confidence": 0.8, "reason": "you write"})";
    const JSONValue reply = JSONObject{{"choices", JSONValue::Array{JSONObject{{"message", JSONObject{{"content", text}}}}}}};
    connection.send(test::LoopbackServer::answer(reply.dump()));
  }

  test::TemporaryFolder folder;
  fs::path root = folder.path() / "data";
  std::atomic<int> pictures = 0;
  std::atomic<bool> mayHang = false, isHanging = false;
  test::LoopbackServer coachsServer{[](const auto&, auto&) {}};
  test::LoopbackServer server{[this](const auto& request, auto& connection) { answer(request, connection); }};
};

TEST_F(ClassifierVerifyProgramTest, looksAtAPlainWindowAndNeverAtAVault) {
  const test::XServer x;
  test::TestWindow editor(x.display(), {.title = "essay <|turn>", .className = "Gedit", .text = "chapter one", .textScale = 3});
  editor.activate();
  const auto sampler = start("Signals", x.display());
  auto classifier = start("ClassifierVerify", x.display());
  ASSERT_TRUE(eventually([&] { return rowOf("Gedit") && rowOf("Gedit")->screenshotAtMs; }, 20)) << "the plain window is looked at";
  EXPECT_GT(pictures, 0);
  const auto messages = server.requests();
  const auto judged = std::ranges::find_if(messages, [](const auto& one) { return one.body.find("CURRENT ACTIVITY") != one.body.npos; });
  ASSERT_NE(judged, messages.end());
  EXPECT_NE(judged->body.find("essay < |turn>"), std::string::npos);
  EXPECT_EQ(judged->body.find("<|turn>"), std::string::npos) << "a title could end the turn";
  EXPECT_EQ(fs::status(root / "checker-log.jsonl").permissions(), fs::perms::owner_read | fs::perms::owner_write);

  {
    test::TestWindow vault(x.display(), {.title = "Mail - KeePassXC", .className = "KeePassXC"});
    vault.activate();
    ASSERT_TRUE(eventually([&] { return rowOf("KeePassXC").has_value(); }, 20));
    expectNoPictures();
    EXPECT_EQ(rowOf("KeePassXC")->contentWithheldForDenylist, "frontmost_denylisted");
    EXPECT_EQ(rowOf("KeePassXC")->screenshotAtMs, std::nullopt);
    EXPECT_NE(server.requests().back().body.find("Withheld: the frontmost app"), std::string::npos);
  }
  editor.activate();
  const test::TestWindow prompt(x.display(), {.title = "Passphrase", .className = "Pinentry-gtk-2", .x = 300, .y = 200, .width = 200,
                                              .height = 100, .isOverrideRedirect = true});
  ASSERT_TRUE(eventually([&] { return rows().back().contentWithheldForDenylist == "denylisted_window_visible"; }, 20));
  expectNoPictures();
  EXPECT_EQ(rows().back().contentWithheldForDenylist, "denylisted_window_visible");
  EXPECT_EQ(rows().back().frontmostApp, "Gedit");

  mayHang = true;
  ASSERT_TRUE(eventually([&] { return isHanging.load(); }, 20));
  classifier.signal(SIGTERM);
  EXPECT_EQ(classifier.wait(1), 0) << "inside a model call";
  EXPECT_EQ(coachsServer.bytesReceived(), 0u);
}

}  // namespace
}  // namespace halvo
