// The program itself with the sampler beside it, on a real display, asking a real socket.

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
  ClassifierVerifyProgramTest() {
    fs::create_directory(root);
    fs::create_directory(root / "io-layer");
  }

  test::ChildProcess start(const std::string& program, const std::string& display) {
    const Environment environment{{"HOME", folder.path().string()},
                                  {"PATH", "/usr/bin:/bin"},
                                  {"DISPLAY", display},
                                  {"TZ", "America/New_York"},
                                  {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"},
                                  {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"},
                                  {"AMBITCAP_DATA_ROOT", root.string()},
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
    const FileHandle log(::open((folder.path() / (program + ".log")).c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
    return {std::string(HALVO_BIN) + "/" + program, {}, environment, {{.ours = log.fd(), .childs = 1}, {.ours = log.fd(), .childs = 2}}};
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
  void answer(const test::LoopbackServer::Request& request, test::LoopbackServer::Connection& connection) {
    if (request.path() == "/props") {
      const std::string props = R"({"model_path": "/a/model.gguf"})";
      return connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(props.size()) + "\r\n\r\n" + props);
    }
    const bool isPicture = request.body.find("image_url") != std::string::npos;
    pictures += isPicture;
    if (mayHang && !isPicture) {
      isHanging = true;
      return connection.hang();
    }
    const std::string text = isPicture ? "someone writes" : R"({"state": "ON_TASK", "confidence": 0.8, "reason": "you write"})";
    const JSONValue reply = JSONObject{{"choices", JSONValue::Array{JSONObject{{"message", JSONObject{{"content", text}}}}}}};
    const auto body = reply.dump();
    connection.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n" + body);
  }

  test::TemporaryFolder folder;
  fs::path root = folder.path() / "data";
  std::atomic<int> pictures = 0;
  std::atomic<bool> mayHang = false, isHanging = false;
  test::LoopbackServer coachsServer{[](const auto&, auto&) {}};
  test::LoopbackServer server{[this](const test::LoopbackServer::Request& request, test::LoopbackServer::Connection& connection) {
    answer(request, connection);
  }};
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
  const auto judged = std::find_if(messages.begin(), messages.end(),
                                   [](const auto& request) { return request.body.find("CURRENT ACTIVITY") != std::string::npos; });
  ASSERT_NE(judged, messages.end());
  EXPECT_NE(judged->body.find("essay < |turn>"), std::string::npos);
  EXPECT_EQ(judged->body.find("<|turn>"), std::string::npos) << "a title could end the turn";
  EXPECT_EQ(fs::status(root / "checker-log.jsonl").permissions(), fs::perms::owner_read | fs::perms::owner_write);

  {
    test::TestWindow vault(x.display(), {.title = "Mail - KeePassXC", .className = "KeePassXC"});
    vault.activate();
    ASSERT_TRUE(eventually([&] { return rowOf("KeePassXC").has_value(); }, 20));
    const auto before = pictures.load();
    const auto count = rows().size();
    ASSERT_TRUE(eventually([&] { return rows().size() >= count + 2; }, 20));
    EXPECT_EQ(rowOf("KeePassXC")->contentWithheldForDenylist, "frontmost_denylisted");
    EXPECT_EQ(rowOf("KeePassXC")->screenshotAtMs, std::nullopt);
    EXPECT_EQ(pictures, before);
  }
  editor.activate();
  const test::TestWindow prompt(x.display(), {.title = "Passphrase", .className = "Pinentry-gtk-2", .x = 300, .y = 200, .width = 200,
                                              .height = 100, .isOverrideRedirect = true});
  ASSERT_TRUE(eventually([&] { return rows().back().contentWithheldForDenylist == "denylisted_window_visible"; }, 20));
  const auto before = pictures.load();
  const auto count = rows().size();
  ASSERT_TRUE(eventually([&] { return rows().size() >= count + 2; }, 20));
  EXPECT_EQ(rows().back().contentWithheldForDenylist, "denylisted_window_visible");
  EXPECT_EQ(rows().back().frontmostApp, "Gedit");
  EXPECT_EQ(pictures, before);

  mayHang = true;
  ASSERT_TRUE(eventually([&] { return isHanging.load(); }, 20));
  const auto asked = std::chrono::steady_clock::now();
  classifier.signal(SIGTERM);
  EXPECT_EQ(classifier.wait(5), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(1)) << "inside a model call";
  EXPECT_EQ(coachsServer.bytesReceived(), 0u);
}

}  // namespace
}  // namespace halvo
