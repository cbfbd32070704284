#include "AmbitudeCore/Backends/LocalModelBackend.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/RequestConformance.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "tests/support/LoopbackServer.h"

namespace halvo {
namespace {

using test::LoopbackServer;

std::string recorded(const std::string& name) {
  return readFile(std::filesystem::path(HALVO_TEST_DATA) / "wire" / (name + ".response.http"));
}

const auto json = LoopbackServer::answer;

/// A server that plays recordings for the chat and answers the side questions, and a backend that talks to it.
struct Rig {
  std::vector<std::string> chats;  ///< one after another; the last one repeats
  std::vector<std::string> props = {recorded("010_props")};  ///< the same for "/props"
  std::size_t pieceSize = 100000;
  std::function<std::string(const LoopbackServer::Request&)> tokenize = {};
  std::int64_t nowMs = 1'000'000;
  std::vector<std::string> log;
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard();
  std::atomic<std::size_t> chatsServed{0}, propsServed{0};
  LoopbackServer server{[this](const auto& request, auto& connection) {
    if (request.path() == "/props") return connection.send(props.at(std::min(propsServed++, props.size() - 1)));
    if (request.path() == "/apply-template") return connection.send(json(R"({"prompt":"p"})", 200));
    if (request.path() == "/tokenize") return connection.send(tokenize ? tokenize(request) : json("{}", 500));
    const auto& answer = chats.at(std::min(chatsServed++, chats.size() - 1));
    if (answer == "hang") return connection.hang();
    connection.sendInPieces(answer, pieceSize);
  }};
  Environment environment;
  double timeoutSec = 30;

  LocalModelBackend backend() {
    return LocalModelBackend(
        {.endpoint = LocalModelConfig::chatEndpoint(server.baseURL()), .model = "m", .timeoutSec = timeoutSec}, *transport,
        {.clock = {.nowMs = [this] { return nowMs; },
                   .wait = [this](double sec, const std::stop_token&) { nowMs += static_cast<std::int64_t>(sec * 1000); }},
         .log = [this](const std::string& line) { log.push_back(line); },
         .environment = environment});
  }
  std::vector<JSONValue> bodies(std::string_view path) const {
    std::vector<JSONValue> found;
    for (const auto& request : server.requests())
      if (request.path() == path) found.push_back(JSONValue::parse(request.body).value());
    return found;
  }
};

const std::vector<ChatMessage> hello{ChatMessage::user("Hello")};
const ChatOptions options{.maxTokens = 200};

ModelBackendError errorOf(LocalModelBackend& backend, const std::vector<ChatMessage>& messages, bool streamed) {
  try {
    if (streamed)
      backend.chatStream(messages, {}, options, [](const auto&) {}, {});
    else
      backend.chat(messages, {}, options, {});
  } catch (const ModelBackendError& error) {
    return error;
  }
  return ModelBackendError::invalidResponse("no error at all");
}

TEST(LocalModelBackend, plainRecordings) {
  const JSONValue note = JSONObject{{"text", "Hello to of"}};
  const struct { const char* name; ChatResponse want; } cases[] = {
      {"100_chat_plain", {.text = "I slowly try.", .usage = ChatUsage{.promptTokens = 41, .completionTokens = 5, .cachedPromptTokens = 0}}},
      {"103_chat_thinking_true",
       {.text = "Maybe rest step can.\n\nMaybe can your well step your try, slowly rest can today small well a rest.", .thinking = "asks",
       .usage = ChatUsage{.promptTokens = 39, .completionTokens = 28, .cachedPromptTokens = 38}}},
      {"104_chat_thinking_length_in_thought",
       {.thinking = "asks", .truncated = true, .usage = ChatUsage{.promptTokens = 39, .completionTokens = 4, .cachedPromptTokens = 38}}},
      {"420_tools_auto_call", {.toolCalls = {{.name = "add_note", .arguments = note}},
       .usage = ChatUsage{.promptTokens = 272, .completionTokens = 12, .cachedPromptTokens = 0}}},
      {"428_tools_call_cut_by_length", {.toolCalls = {{.name = "add_note"}}, .truncated = true,
       .usage = ChatUsage{.promptTokens = 272, .completionTokens = 6, .cachedPromptTokens = 271}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig{.chats = {recorded(c.name)}};
    auto got = rig.backend().chat(hello, {}, options, {});
    EXPECT_EQ(got.servedBy, "the local model");
    ASSERT_TRUE(got.provenance);
    EXPECT_EQ(got.provenance->servedModel, "gemma4:12b-it-qat");
    EXPECT_FALSE(got.provenance->provider);
    got.servedBy.reset(), got.provenance.reset();
    EXPECT_EQ(got, c.want);
  }
  Rig rig{.chats = {recorded("300_logprobs")}};
  const auto logprobs = rig.backend().chat(hello, {}, options, {}).logprobs;
  ASSERT_EQ(logprobs.size(), 4u);
  EXPECT_EQ(logprobs[2].token, " try");
  EXPECT_EQ(logprobs[2].topAlternatives.size(), 3u);
  EXPECT_NEAR(logprobs[2].logprob, -3.4085545, 1e-6);
}

TEST(LocalModelBackend, streamedRecordings) {
  const struct { const char* name; const char *text, *thinking; bool truncated; std::size_t toolCalls, logprobs; bool usage; } cases[] = {
      {"200_stream_no_usage", "I slowly try.", "", false, 0, 0, false},
      {"201_stream_usage", "I slowly try.", "", false, 0, 0, true},
      {"203_stream_thinking", "Maybe rest step can.\n\nMaybe can your well step your try, slowly rest can today small well a rest.", "asks",
       false, 0, 0, true},
      {"204_stream_utf8", "You friend and a friendé🙂.", "", false, 0, 0, true},
      {"301_logprobs_stream", "I slowly try.", "", true, 0, 4, false},
      {"421_tools_auto_call_stream", "", "", false, 1, 0, true},
      {"424_tools_two_calls_stream", "", "", false, 2, 0, true},
      {"840_stream_sse_ping", "I slowly", "", true, 0, 0, true},
  };
  for (const auto& c : cases) {
    for (const std::size_t size : {7u, 100000u}) {
      SCOPED_TRACE(fmt::format("{} in pieces of {}", c.name, size));
      Rig rig{.chats = {recorded(c.name)}, .pieceSize = size};
      std::string text, thinking;
      const auto got = rig.backend().chatStream(hello, {}, options,
                                                [&](const ModelStreamDelta& delta) { text += delta.text, thinking += delta.thinking; }, {});
      EXPECT_EQ(got.text, c.text);
      EXPECT_EQ(text, c.text);
      EXPECT_EQ(got.thinking, c.thinking);
      EXPECT_EQ(thinking, c.thinking);
      EXPECT_EQ(got.truncated, c.truncated);
      EXPECT_EQ(got.toolCalls.size(), c.toolCalls);
      for (const auto& call : got.toolCalls) EXPECT_TRUE(call.name == "add_note" && call.arguments.find("text")) << call.arguments.dump();
      EXPECT_EQ(got.logprobs.size(), c.logprobs);
      EXPECT_EQ(got.usage.has_value(), c.usage);
      EXPECT_EQ(rig.bodies("/v1/chat/completions").at(0).find("stream")->boolValue(), true);
    }
  }
}

TEST(LocalModelBackend, failures) {
  using Kind = ModelBackendError::Kind;
  const std::string streamHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  const struct { const char* name; std::string answer; bool streamed; Kind kind; int status; const char* text; } cases[] = {
      {"not JSON", json("<html>", 200), false, Kind::invalidResponse, 0, "llama-server response was not a JSON object"},
      {"a list", json("[1]", 200), false, Kind::invalidResponse, 0, "llama-server response was not a JSON object"},
      {"an error with status 200", json(R"({"error":{"message":"no"}})", 200), false, Kind::invalidResponse, 0, "llama-server error: no"},
      {"no choices", json(R"({"choices":[]})", 200), false, Kind::invalidResponse, 0, "llama-server response had no choices[0].message"},
      {"error inside a stream", recorded("431_tools_malformed_stream"), true, Kind::invalidResponse, 0,
       "llama-server error: The model produced output that does not match the expected peg-gemma4 format"},
      {"invalid JSON sent", recorded("620_invalid_json"), true, Kind::httpError, 500, "parse_error"},
      {"503 that is not loading", json("over capacity", 503), false, Kind::httpError, 503, "over capacity"},
      {"stream that just ends", streamHead + "18\r\ndata: {\"choices\":[{}]}\r\n\r\n\r\n0\r\n\r\n", true, Kind::transportError, 0, "-1005"},
      {"stream of nothing", streamHead + "e\r\ndata: [DONE]\r\n\r\n0\r\n\r\n", true, Kind::invalidResponse, 0, "no choices[0].message"},
      {"stream that dies", recorded("201_stream_usage").substr(0, 900), true, Kind::transportError, 0, "-1005"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig{.chats = {c.answer}};
    auto backend = rig.backend();
    const auto error = errorOf(backend, hello, c.streamed);
    EXPECT_EQ(error.kind(), c.kind);
    EXPECT_EQ(error.status(), c.status);
    EXPECT_NE(error.text().find(c.text), std::string::npos) << error.text();
    EXPECT_EQ(rig.chatsServed, 1u);
  }
  Rig silent{.chats = {"hang"}, .timeoutSec = 0.2};
  auto backend = silent.backend();
  EXPECT_TRUE(errorOf(backend, hello, false).isTimeout());
  EXPECT_TRUE(errorOf(backend, hello, true).isTimeout());
  const auto unreadable = errorOf(backend, {ChatMessage::user("\xff")}, false);
  EXPECT_TRUE(unreadable.text().starts_with("failed to encode request body: ")) << unreadable.text();
}

TEST(LocalModelBackend, aStopEndsACallInFlight) {
  Rig rig{.chats = {"hang"}};
  std::stop_source source;
  std::chrono::steady_clock::time_point stopped;
  std::jthread stopper([&] {
    while (rig.chatsServed == 0) std::this_thread::yield();
    stopped = std::chrono::steady_clock::now();
    source.request_stop();
  });
  EXPECT_THROW(rig.backend().chat(hello, {}, options, source.get_token()), Cancelled);
  stopper.join();
  EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::milliseconds(200));
}

TEST(LocalModelBackend, waitsForWeightsUntilTheDeadline) {
  Rig rig{.chats = {recorded("800_loading_chat"), recorded("800_loading_chat"), recorded("100_chat_plain")}};
  EXPECT_EQ(rig.backend().chat(hello, {}, options, {}).text, "I slowly try.");
  EXPECT_EQ(rig.nowMs, 1'002'000);

  Rig never{.chats = {recorded("800_loading_chat")}, .timeoutSec = 3};
  auto backend = never.backend();
  const auto error = errorOf(backend, hello, false);
  EXPECT_EQ(error.status(), 503);
  EXPECT_EQ(never.chatsServed, 3u);  // at 0, 1 and 2 s: a fourth would begin at the deadline itself
}

std::vector<ChatMessage> longTalk() {
  std::vector<ChatMessage> messages{ChatMessage::system("You are kind.")};
  for (int i = 0; i < 9; ++i) messages.push_back(ChatMessage::user(fmt::format("{} {}", i, std::string(980, 'x'))));
  return messages;
}

TEST(LocalModelBackend, aRefusedPromptIsTrimmedAndSentAgain) {
  // Counting fails, so the server's own refusal is what trims: 4833 tokens into 2048 with 200 kept leaves out 6 of 9.
  Rig rig{.chats = {recorded("601_exceed_context_stream"), recorded("201_stream_usage")}};
  const auto got = rig.backend().chatStream(longTalk(), {}, options, [](const auto&) {}, {});
  EXPECT_EQ(got.text, "I slowly try.");
  ASSERT_EQ(rig.log.size(), 1u);
  EXPECT_EQ(
      rig.log[0],
      "local model: the conversation is 4833 tokens and the context is 2048 (keeping 256 for the reply) -- dropped the 6 oldest message(s) "
      "and sent again (attempt 2)");
  const auto body = rig.bodies("/v1/chat/completions").at(1);
  const auto* sent = body.find("messages")->arrayValue();
  ASSERT_EQ(sent->size(), 4u);
  EXPECT_EQ(*(*sent)[0].find("role"), JSONValue("system"));

  Rig stubborn{.chats = {recorded("600_exceed_context")}};
  auto backend = stubborn.backend();
  EXPECT_EQ(errorOf(backend, longTalk(), false).status(), 400);
  EXPECT_EQ(stubborn.chatsServed, 3u);  // two trims leave one message, and that one stays
  EXPECT_EQ(errorOf(backend, hello, false).status(), 400) << "a single message is never trimmed";
}

TEST(LocalModelBackend, countsBeforeSendingWhenInDoubt) {
  Rig rig{.chats = {recorded("100_chat_plain")}};
  rig.tokenize = [](const auto&) {
    std::string tokens = "1";
    for (int i = 1; i < 2000; ++i) tokens += ",1";
    return json(R"({"tokens":[)" + tokens + "]}", 200);
  };
  const std::vector<ToolSpec> tools{{.name = "t", .parameters = JSONObject{{"type", "object"}, {"properties", JSONObject{}}}}};
  auto backend = rig.backend();
  backend.chat(longTalk(), tools, options, {});
  ASSERT_EQ(rig.log.size(), 1u);
  EXPECT_TRUE(
      rig.log[0].ends_with("the conversation is 2000 tokens and the context is 2048 (keeping 256 for the reply) -- dropped the 1 oldest "
                           "message(s) before sending"))
      << rig.log[0];
  const auto asked = rig.bodies("/apply-template").at(0);
  EXPECT_TRUE(asked.find("tools") && asked.find("chat_template_kwargs") && asked.find("messages")->arrayValue()->size() == 10);
  EXPECT_EQ(rig.bodies("/tokenize").at(0), *JSONValue::parse(R"({"content":"p","add_special":true,"parse_special":true})"));
  backend.chat(hello, {}, options, {});
  EXPECT_EQ(rig.bodies("/tokenize").size(), 1u) << "a short conversation needs no counting";
}

TEST(LocalModelBackend, aFailedContextReadIsForgotten) {
  Rig rig{.chats = {recorded("100_chat_plain")}, .props = {json("{}", 500), recorded("010_props")}};
  auto backend = rig.backend();
  for (const std::size_t asked : {1u, 2u, 2u}) {
    backend.chat(hello, {}, options, {});
    EXPECT_EQ(rig.propsServed, asked);
  }
}

TEST(LocalModelBackend, theBody) {
  const std::vector<ChatMessage> talk{
      ChatMessage::system("s"),
      ChatMessage::user("u"),
      ChatMessage::assistant("a", std::vector<ToolCall>{{.name = "x", .arguments = JSONObject{{"n", 1}}}, {.name = "y"}, {.name = "x"}},
                             "why", "[1]"),
      ChatMessage::toolResult("y", "1"),
      ChatMessage::toolResult("x", "2"),
      ChatMessage::toolResult("x", "3"),
      ChatMessage::toolResult("x", "4")};
  const std::vector<ToolSpec> tools{{.name = "x", .description = "d", .parameters = JSONObject{{"type", "object"}}}};
  const ChatOptions all{.maxTokens = 9,
                        .think = false, .logprobs = true, .topLogprobs = 2, .seed = 5,
                        .responseSchemaJSON = R"({"type":"object","properties":{"z":{},"a":{}}})"};
  const auto body = LocalInferenceWire::body({.model = "m", .messages = talk, .tools = tools, .options = all});
  // The schema keeps its key order: the model writes its keys in it.
  EXPECT_TRUE(body.ends_with(
      R"("response_format":{"type":"json_schema","json_schema":{"name":"response","strict":true,)"
      R"("schema":{"type":"object","properties":{"z":{},"a":{}}}}}})"))
      << body;
  const auto want = JSONValue::parse(R"({"model":"m","stream":false,"max_tokens":9,"seed":5,"logprobs":true,"top_logprobs":2,
    "chat_template_kwargs":{"enable_thinking":false},
    "tools":[{"type":"function","function":{"name":"x","description":"d","parameters":{"type":"object"}}}],
    "messages":[{"role":"system","content":"s"},{"role":"user","content":"u"},
      {"role":"assistant","content":"a","reasoning_content":"why","tool_calls":[
        {"id":"call_2_0","type":"function","function":{"name":"x","arguments":"{\"n\":1}"}},
        {"id":"call_2_1","type":"function","function":{"name":"y","arguments":"{}"}},
        {"id":"call_2_2","type":"function","function":{"name":"x","arguments":"{}"}}]},
      {"role":"tool","content":"1","tool_call_id":"call_2_1","name":"y"},
      {"role":"tool","content":"2","tool_call_id":"call_2_0","name":"x"},
      {"role":"tool","content":"3","tool_call_id":"call_2_2","name":"x"},
      {"role":"tool","content":"4","tool_call_id":"call_unmatched_x_6","name":"x"}]})");
  auto got = JSONValue::parse(body).value();
  got.mutableObject()->erase("response_format");
  EXPECT_EQ(got, want);
  EXPECT_THROW(LocalInferenceWire::body({.model = "m", .messages = talk, .tools = tools, .options = {.responseSchemaJSON = "{"}}),
               JSONEncodingError);

  Rig rig{.chats = {recorded("100_chat_plain")}, .environment = {{"AMBITCAP_VALIDATE_REQUESTS", "1"}}};
  EXPECT_THROW(rig.backend().chat(talk, tools, options, {}), RequestConformance::Violation);
  EXPECT_EQ(rig.server.requests().size(), 0u);
}

TEST(LocalInferenceWire, smallCalls) {
  Rig rig{.chats = {recorded("630_image_without_mmproj"), recorded("500_json_schema_strict")}};
  const LocalInferenceWire::SmallCall call{.endpoint = LocalInferenceWire::chatCompletionsURL(rig.server.baseURL()),
                                           .model = "m", .messages = {LocalInferenceWire::imageMessage("see", "AAAA")}, .jsonReply = true};
  EXPECT_THROW(LocalInferenceWire::ask(call, *rig.transport, {}), ModelBackendError);
  EXPECT_EQ(LocalInferenceWire::ask(call, *rig.transport, {}), "{\"mood\":\"bad\",\n\n \"note\":\"iB\",\"score\":5}");
  EXPECT_EQ(rig.bodies("/v1/chat/completions").at(1), *JSONValue::parse(R"({"model":"m","max_tokens":256,"stream":false,
    "chat_template_kwargs":{"enable_thinking":false},"response_format":{"type":"json_object"},
    "messages":[{"role":"user","content":[{"type":"text","text":"see"},
      {"type":"image_url","image_url":{"url":"data:image/png;base64,AAAA"}}]}]})"));
}

}  // namespace
}  // namespace halvo
