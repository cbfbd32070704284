#include <csignal>
#include <filesystem>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Net/URLParts.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

const ChatOptions options{.maxTokens = 300};
const std::vector<ToolSpec> tools{
    {.name = "write_current_intention", .parameters = JSONObject{{"type", "object"}, {"properties", JSONObject{}}}}};

/// The program itself, running, and a backend that talks to it.
class Practice {
 public:
  explicit Practice(std::vector<std::string> arguments = {}, bool overSocket = false) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    const FileHandle out(ends[0]);
    if (overSocket)
      arguments.insert(arguments.begin(), {"--socket", (folder.path() / "s").native()});
    else
      arguments.insert(arguments.begin(), {"--listen", "http://127.0.0.1:0"});
    {
      const FileHandle in(ends[1]);
      process =
          test::ChildProcess(std::string(HALVO_BIN) + "/PracticeModel", arguments, processEnvironment(), {{.ours = in.fd(), .childs = 1}});
    }
    std::string line;
    char c = 0;
    while (::read(out.fd(), &c, 1) == 1 && c != '\n') line += c;
    constexpr std::string_view greeting = "practice model listening on ";
    if (!line.starts_with(greeting)) throw std::runtime_error("the practice model did not start: " + line);
    url = line.substr(greeting.size());
  }

  LocalModelBackend backend(double timeoutSec = 10) {
    return LocalModelBackend({.endpoint = LocalModelConfig::chatEndpoint(url), .model = "m", .timeoutSec = timeoutSec}, *transport,
                             {.log = [this](const std::string& said) { log.push_back(said); }});
  }
  ModelBackendError failure(bool streamed, double timeoutSec = 10) {
    try {
      auto asked = backend(timeoutSec);
      if (streamed)
        asked.chatStream({ChatMessage::user("hello")}, {}, options, [](const auto&) {}, {});
      else
        asked.chat({ChatMessage::user("hello")}, {}, options, {});
    } catch (const ModelBackendError& error) {
      return error;
    }
    return ModelBackendError::invalidResponse("no error at all");
  }

  test::TemporaryFolder folder;
  test::ChildProcess process;
  std::string url;
  std::vector<std::string> log;
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard();
};

TEST(PracticeModel, answersPlainStreamedAndWithTools) {
  for (const bool overSocket : {false, true}) {
    Practice practice({}, overSocket);
    auto backend = practice.backend();
    const std::vector<ChatMessage> talk{ChatMessage::system("You are the coaching voice in Lark, x"),
                                        ChatMessage::user("[15:02] i'm going to draw für 🙂 for 20 min")};
    const auto plain = backend.chat(talk, tools, options, {});
    std::string text, thinking;
    const auto streamed =
        backend.chatStream(talk, tools, options, [&](const auto& delta) { text += delta.text, thinking += delta.thinking; }, {});
    EXPECT_EQ(plain.toolCalls, (std::vector<ToolCall>{{.name = "write_current_intention",
                                                       .arguments = JSONObject{{"notes", "draw für 🙂"}, {"horizon_minutes", 20}}}}));
    EXPECT_EQ(streamed.toolCalls, plain.toolCalls);
    EXPECT_EQ(streamed.text, plain.text);
    EXPECT_EQ(text, plain.text);
    EXPECT_EQ(thinking, plain.thinking);
    EXPECT_FALSE(plain.thinking.empty());
    ASSERT_TRUE(plain.usage);
    EXPECT_GT(plain.usage->completionTokens, 10);
    EXPECT_EQ(plain.provenance->finishReason, "tool_calls");

    auto short_ = options;
    short_.think = false, short_.maxTokens = 3;
    const auto cut = backend.chat(talk, tools, short_, {});
    EXPECT_TRUE(cut.truncated && cut.thinking.empty() && cut.text.size() < plain.text.size());
    practice.process.signal(SIGTERM);
    EXPECT_EQ(practice.process.wait(2), 0);
    EXPECT_FALSE(std::filesystem::exists(practice.folder.path() / "s"));
  }
}

TEST(PracticeModel, aLongTalkIsTrimmedByItsOwnCount) {
  Practice practice({"--context", "1024"});
  auto backend = practice.backend();
  std::vector<ChatMessage> talk{ChatMessage::system("s")};
  for (int i = 0; i < 12; ++i) talk.push_back(ChatMessage::user(fmt::format("{}{}", i, std::string(600, 'x'))));
  EXPECT_EQ(backend.chat(talk, {}, options, {}).text, "This is the practice model: it answers by fixed rules.");
  ASSERT_FALSE(practice.log.empty());
  EXPECT_TRUE(practice.log[0].ends_with("before sending")) << practice.log[0];

  // What the two side questions count is what a chat is charged.
  const LocalInferenceWire::Body body{.model = "m", .messages = talk, .tools = tools, .options = options};
  const auto post = [&](const char* path, std::string text) {
    return JSONValue::parse(
               practice.transport->send({.method = "POST", .url = joinedURL(practice.url, path), .body = std::move(text)}, {}).body)
        .value();
  };
  const auto prompt = post("apply-template", LocalInferenceWire::templateBody(body));
  const auto counted = post("tokenize", JSONValue(JSONObject{{"content", *prompt.find("prompt")}, {"add_special", true}}).dump());
  const auto refused = post("v1/chat/completions", LocalInferenceWire::body(body));
  EXPECT_EQ(refused.at({"error", "n_prompt_tokens"})->numberValue(), static_cast<double>(counted.find("tokens")->arrayValue()->size()));
  EXPECT_EQ(*refused.at({"error", "type"}), JSONValue("exceed_context_size_error"));
}

TEST(PracticeModel, faults) {
  using Kind = ModelBackendError::Kind;
  const struct { const char* fault; bool streamed; Kind kind; const char* text; } cases[] = {
      {"hang", false, Kind::transportError, "-1001"},           {"hang", true, Kind::transportError, "-1001"},
      {"garbage", false, Kind::transportError, "-1011"},        {"bad-json", false, Kind::invalidResponse, "not a JSON object"},
      {"bad-json", true, Kind::transportError, "-1005"},        {"die-mid-stream", true, Kind::transportError, "-1005"},
      {"die-mid-stream", false, Kind::transportError, "-1005"}, {"http-500", true, Kind::httpError, "told to fail"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(fmt::format("{} {}", c.fault, c.streamed));
    Practice practice({"--fault", c.fault});
    const auto error = practice.failure(c.streamed, 0.4);
    EXPECT_EQ(error.kind(), c.kind);
    EXPECT_NE(error.text().find(c.text), std::string::npos) << error.text();
  }
  EXPECT_EQ(Practice({"--fault", "empty"}).backend().chat({ChatMessage::user("x")}, {}, options, {}).text, "");
  EXPECT_TRUE(Practice({"--fault", "truncated"}).backend().chat({ChatMessage::user("x")}, {}, options, {}).truncated);
  // Loading ends by itself, and the backend has waited for it.
  EXPECT_FALSE(
      Practice({"--fault", "loading", "--fault-seconds", "0.5"}).backend().chat({ChatMessage::user("x")}, {}, options, {}).text.empty());
}

TEST(PracticeModel, playsAScriptAndRefusesNonsense) {
  const test::TemporaryFolder folder;
  folder.write("script", "{\"text\":\"scripted\",\"for\":\"other\"}\n");
  Practice practice({"--script", (folder.path() / "script").native()});
  auto backend = practice.backend();
  EXPECT_EQ(backend.chat({ChatMessage::user("x")}, {}, options, {}).text, "scripted");
  EXPECT_NE(backend.chat({ChatMessage::user("x")}, {}, options, {}).text, "scripted");

  folder.write("a file", "kept");
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"--listen", "http://0.0.0.0:0"},
                                                    {"--listen", "http://127.0.0.1:0", "--fault", "unheard-of"},
                                                    {"--listen", practice.url},
                                                    {"--socket", (folder.path() / "a file").native()}}) {
    test::ChildProcess refused(std::string(HALVO_BIN) + "/PracticeModel", arguments, processEnvironment());
    const auto code = refused.wait(5);
    EXPECT_TRUE(code && *code != 0);
  }
  EXPECT_EQ(readFile(folder.path() / "a file"), "kept");
}

}  // namespace
}  // namespace halvo
