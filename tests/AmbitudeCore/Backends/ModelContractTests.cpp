#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/LocalContextFit.h"
#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Backends/LocalModelReplyHold.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/NonThinkingModelBackend.h"
#include "AmbitudeCore/Backends/OllamaEmbeddingProvider.h"
#include "AmbitudeCore/Backends/RequestConformance.h"
#include "AmbitudeCore/Backends/RequestDump.h"
#include "AmbitudeCore/Backends/SessionDigest.h"
#include "AmbitudeCore/Backends/TurnUsageLog.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/CurlTransport.h"
#include "CaptureShared/Net/TransportText.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using test::LoopbackServer;
using test::TemporaryFolder;

ChatMessage calling(std::vector<std::string> names) {
  std::vector<ToolCall> calls;
  for (auto& name : names) calls.push_back({.name = std::move(name)});
  return ChatMessage::assistant("", std::move(calls));
}

std::string violation(const std::function<void()>& check) {
  try {
    check();
  } catch (const RequestConformance::Violation& broken) {
    return broken.what();
  }
  return "";
}

TEST(RequestConformance, validate) {
  const auto sys = ChatMessage::system("s"), user = ChatMessage::user("u"), x = ChatMessage::toolResult("x", "1");
  auto nameless = x;
  nameless.toolName.reset();
  const std::string unanswered = ") with no answering tool message; every tool call must be answered before the conversation continues";
  const struct { std::vector<ChatMessage> messages; std::string want; } cases[] = {
      {{sys}, ""},
      {{}, ""},
      {{sys, user, calling({"x", "y"}), x, x, user}, ""},
      {{user, sys}, "request conformance [system_not_first] system message at index 1; system content must lead the conversation"},
      {{user, calling({"x"}), x, x},
       "request conformance [orphan_tool_message] tool message at index 3 (name: x) answers no preceding assistant tool call"},
      {{nameless},
       "request conformance [orphan_tool_message] tool message at index 0 (name: unnamed) answers no preceding assistant tool call"},
      {{calling({"x", "y"}), x, user},
       "request conformance [unanswered_tool_call] assistant at index 0 called `y` (call 2 of 2" + unanswered},
      {{user, calling({"x"})}, "request conformance [unanswered_tool_call] assistant at index 1 called `x` (call 1 of 1" + unanswered},
  };
  for (const auto& c : cases) EXPECT_EQ(violation([&] { RequestConformance::validate(c.messages, {}); }), c.want);

  const struct { JSONValue parameters; std::string want; } schemas[] = {
      {"text", "is not a JSON object"},
      {JSONObject{{"type", "array"}}, "must declare \"type\": \"object\""},
      {JSONObject{{"type", "object"}, {"properties", 1}}, "must carry a `properties` object"}};
  for (const auto& c : schemas)
    EXPECT_EQ(violation([&] { RequestConformance::validate({}, {{.name = "t", .parameters = c.parameters}}); }),
              "request conformance [malformed_tool_schema] tool `t` parameters " + c.want);
}

TEST(RequestConformance, encodedShapeAndResponseFormat) {
  const struct { const char *messages, *want; } cases[] = {
      {R"([{"role":"assistant","tool_calls":[{"id":"a"},{"id":"b"}]},{"role":"tool","tool_call_id":"a"},)"
       R"({"role":"tool","tool_call_id":"b"}])",
       ""},
      {R"([{"role":"tool","tool_call_id":"a"}])", "[orphan_tool_message] encoded tool message at index 0 answers no pending call"},
      {R"([{"role":"assistant","tool_calls":[{"id":"a"}]},{"role":"tool"}])",
       "[tool_call_id_mismatch] encoded tool message at index 1 carries tool_call_id <missing> but is positioned to answer a"},
      {R"([{"role":"assistant","tool_calls":[{"id":"a"}]},{"content":"x"}])",
       "[unanswered_tool_call] encoded message at index 1 (role: unknown) interrupts 1 unanswered tool call(s)"},
      {R"([{"role":"assistant","tool_calls":[{"id":"a"}]}])", "[unanswered_tool_call] conversation ends with 1 unanswered tool call(s)"},
  };
  for (const auto& c : cases) {
    const auto messages = JSONValue::parse(c.messages).value();
    EXPECT_EQ(violation([&] { RequestConformance::validateEncodedOpenAIShape(*messages.arrayValue()); }),
              *c.want ? std::string("request conformance ") + c.want : "");
  }
  using namespace RequestConformance;
  EXPECT_NE(violation([] { validateResponseFormat(SchemaRequest::requested, SchemaSupport::unknown); }), "");
  EXPECT_EQ(violation([] { validateResponseFormat(SchemaRequest::requested, SchemaSupport::enforced); }), "");
  EXPECT_EQ(violation([] { validateResponseFormat(SchemaRequest::none, SchemaSupport::unknown); }), "");
}

TEST(ModelBackendError, retryableTimeoutAndDescription) {
  for (const int status : {401, 403, 408, 429, 500, 503, 599})
    EXPECT_TRUE(ModelBackendError::httpError(status, "").isRetryable()) << status;
  for (const int status : {400, 404, 422, 302, 418, 600}) EXPECT_FALSE(ModelBackendError::httpError(status, "").isRetryable()) << status;
  EXPECT_FALSE(ModelBackendError::invalidResponse("x").isRetryable());
  EXPECT_TRUE(ModelBackendError::transportError(TransportText::timedOut("x")).isTimeout());
  EXPECT_FALSE(ModelBackendError::transportError(TransportText::connectionLost()).isTimeout());
  EXPECT_FALSE(ModelBackendError::httpError(500, TransportText::timedOut()).isTimeout());
  const std::string key = "sk-or-v1-0123456789abcdef0123456789abcdef0123456789abcdef";
  EXPECT_EQ(describeError(ModelBackendError::httpError(401, "bad key " + key)), "http 401: bad key [redacted]");
  EXPECT_EQ(describeError(ModelBackendError::httpError(500, "")), "http 500");
  EXPECT_EQ(describeError(ModelBackendError::invalidResponse("x")), "invalid response: x");
  EXPECT_EQ(describeError(std::runtime_error("key " + key)), "key [redacted]");
}

TEST(ChatTypes, loggedCallsAndUsage) {
  const ToolCall call{.name = " go ", .arguments = JSONObject{{"n", 1}}};
  EXPECT_EQ(ToolCall::decodeLogged(call.asLoggedJSON()), call);
  EXPECT_EQ(ToolCall::decodeLogged(JSONObject{{"name", "x"}}), (ToolCall{.name = "x"}));
  for (const JSONValue& bad : {JSONValue(1), JSONValue(JSONObject{{"name", " \n"}}), JSONValue(JSONObject{{"name", 5}})})
    EXPECT_EQ(ToolCall::decodeLogged(bad), std::nullopt) << bad.dump();

  const ChatUsage costed{.promptTokens = 10, .completionTokens = 2, .cachedPromptTokens = 5, .costUSD = 0.25},
      plain{.promptTokens = 1, .callCount = 2};
  EXPECT_EQ(ChatUsage::combining(costed, plain),
            (ChatUsage{.promptTokens = 11, .completionTokens = 2, .cachedPromptTokens = 5, .costUSD = 0.25, .callCount = 3}));
  EXPECT_EQ(ChatUsage::combining(std::nullopt, plain), plain);
  EXPECT_EQ(costed.cacheHitRate(), 0.5);
  EXPECT_EQ((ChatUsage{.promptTokens = 0, .cachedPromptTokens = 0}).cacheHitRate(), std::nullopt);
  EXPECT_EQ(disclosureLine(FallbackCause::unreachable, "local"), "answered by local — the usual model was unreachable");
}

TEST(LocalContextFit, reserveOverflowAndTrim) {
  EXPECT_EQ(LocalContextFit::outputReserve(1024, 5000), 256);
  EXPECT_EQ(LocalContextFit::outputReserve(16384, 2000), 2000);
  EXPECT_EQ(LocalContextFit::outputReserve(100, 10), 256);

  const auto message = [](std::size_t size) { return ChatMessage::user(std::string(size - 16, 'x')); };
  EXPECT_FALSE(LocalContextFit::mayNeedCounting({message(2305)}, 1024, 256));  // 768 tokens at three characters each
  EXPECT_TRUE(LocalContextFit::mayNeedCounting({message(2307)}, 1024, 256));
  EXPECT_EQ(LocalContextFit::characterWeight(ChatMessage::assistant("é🙂", std::vector<ToolCall>{{.name = "ab"}}, "123")),
            2 + 16 + 3 + 2 + 2);

  const std::string good = R"({"error":{"type":"exceed_context_size_error","n_prompt_tokens":9,"n_ctx":4}})";
  using Error = ModelBackendError;
  EXPECT_EQ(LocalContextFit::overflow(Error::httpError(400, good)), (LocalContextFit::Overflow{9, 4}));
  for (const auto& other : {Error::httpError(500, good), Error::invalidResponse(good), Error::httpError(400, "exceed_context_size_error"),
                            Error::httpError(400, R"({"error":{"type":"exceed_context_size_error","n_prompt_tokens":9,"n_ctx":0}})")})
    EXPECT_EQ(LocalContextFit::overflow(other), std::nullopt);

  const auto sys = ChatMessage::system(std::string(84, 's'));
  const std::vector<ChatMessage> talk{
      sys, message(100), calling({"x"}), ChatMessage::toolResult("x", ""), ChatMessage::toolResult("x", ""), message(100)};
  const struct {
    const char* name;
    LocalContextFit::Overflow overflow;
    std::vector<ChatMessage> messages;
    std::size_t dropped;  // 0: no trim
  } cases[] = {
      {"it fits", {100, 200}, talk, 0},
      {"one token over drops the oldest group", {201, 300}, talk, 1},
      {"a call goes with its answers", {351, 350}, talk, 4},
      {"the last group stays however large", {9999, 300}, talk, 4},
      {"a lone message stays", {201, 300}, {message(100)}, 0},
      {"nothing but system messages", {201, 300}, {sys}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto trim = LocalContextFit::trimmed(c.messages, c.overflow, 100);
    ASSERT_EQ(trim ? trim->droppedMessages : 0, c.dropped);
    if (!trim) continue;
    EXPECT_EQ(trim->messages.size(), c.messages.size() - c.dropped);
    EXPECT_EQ(trim->messages.front(), sys);
    EXPECT_EQ(trim->messages.back(), c.messages.back());
  }
}

TEST(LocalInferenceEndpoint, resolve) {
  using Kind = LocalInferenceEndpoint::ResolutionError::Kind;
  const auto resolve = [](const std::string& value) {
    return LocalInferenceEndpoint::resolveOrThrow({{"HOME", "/home/a b"}, {std::string(LocalInferenceEndpoint::envVar), value}});
  };
  const auto unixDefault = "http+unix://%2Fhome%2Fa%20b%2FLibrary%2FApplication%20Support%2FAmbitCapture%2Fllama%2Fllama.sock";
  EXPECT_EQ(resolve(" \n"), unixDefault);
  EXPECT_EQ(LocalInferenceEndpoint::resolveOrThrow({{"HOME", "/home/a b"}}), unixDefault);
  EXPECT_TRUE(LocalInferenceEndpoint::isUnixSocket(unixDefault));
  for (const auto* good : {"http://127.0.0.1:11477", "http://127.0.0.1/", "HTTP://127.0.0.1:1"})
    EXPECT_EQ(resolve(std::string(" ") + good), good);
  const std::pair<const char*, Kind> bad[] = {
      {"127.0.0.1:80", Kind::malformed}, {"http://", Kind::malformed}, {"http://127.0.0.1?q", Kind::malformed},
      {"http://127.0.0.1#f", Kind::malformed}, {"http://u:p@127.0.0.1", Kind::malformed}, {"http://127.0.0.1:0", Kind::malformed},
      {"http://127.0.0.1:65536", Kind::malformed}, {"https://localhost/x", Kind::notIPv4Loopback},
      {"http://LocalHost", Kind::notIPv4Loopback}, {"http://127.0.0.1@evil.example", Kind::notLoopback},
      {"http://127.1", Kind::notLoopback}, {"http://[::1]:80", Kind::notLoopback}, {"http://127.0.0.1.evil.example", Kind::notLoopback},
      {"https://127.0.0.1", Kind::unsupportedScheme}, {"http://127.0.0.1/v1", Kind::hasPath}};
  for (const auto& [value, want] : bad) {
    try {
      resolve(value);
      ADD_FAILURE() << value;
    } catch (const LocalInferenceEndpoint::ResolutionError& error) {
      EXPECT_EQ(error.kind(), want) << value;
      EXPECT_TRUE(std::string(error.what()).starts_with(std::string("AMBITCAP_LOCAL_INFERENCE_ENDPOINT=\"") + value + "\" "))
          << error.what();
    }
  }
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(LocalInferenceEndpoint::resolve({{std::string(LocalInferenceEndpoint::envVar), "http://x"}}), testing::ExitedWithCode(78),
              "is not 127.0.0.1");
}

TEST(LocalModelReplyHold, decide) {
  using namespace LocalModelReplyHold;
  const std::int64_t now = 1'000'000;
  const struct { const char* name; Moment moment; Decision want; } cases[] = {
      {"a remote primary never waits", {.modelFilesMissing = true}, Decision::run},
      {"files missing, a message waits", {.primaryIsLocal = true, .modelFilesMissing = true, .answersTypedMessage = true},
       Decision::holdWithNotice},
      {"told once", {.primaryIsLocal = true, .modelFilesMissing = true, .answersTypedMessage = true, .wasHolding = true},
       Decision::holdQuietly},
      {"files missing, nobody waits", {.primaryIsLocal = true, .modelFilesMissing = true}, Decision::holdQuietly},
      {"the server serves", {.primaryIsLocal = true, .serverServing = true, .filesLandedAtMs = now, .asOfMs = now}, Decision::run},
      {"just landed", {.primaryIsLocal = true, .filesLandedAtMs = now, .asOfMs = now + 179'999}, Decision::holdQuietly},
      {"the grace is over", {.primaryIsLocal = true, .filesLandedAtMs = now, .asOfMs = now + 180'000}, Decision::run},
      {"landed long ago, unknown when", {.primaryIsLocal = true, .asOfMs = now}, Decision::run},
  };
  for (const auto& c : cases) EXPECT_EQ(decide(c.moment), c.want) << c.name;
  EXPECT_TRUE(clearsBackoff(true, Decision::run));
  EXPECT_FALSE(clearsBackoff(true, Decision::holdQuietly) || clearsBackoff(false, Decision::run));
}

TEST(RequestDump, holdsNoKey) {
  const TemporaryFolder folder;
  const std::string key = "sk-or-v1-0123456789abcdef0123456789abcdef0123456789abcdef";
  const RequestDump::Request request{
      .endpoint = "http://127.0.0.1/v1",
      .headers = {{"content-type", "application/json"}, {"Authorization", "Bearer " + key}, {"X-New", "hush"}},
      .body = R"({"content":"my key is sk-or-v1-0123456789abcdef0123456789abcdef0123456789abcdef"})",
      .nowMs = 1'700'000'000'123};
  RequestDump::write(request, folder.path());
  RequestDump::write(request, folder.path());
  std::size_t files = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder.path() / "model-request-dumps")) {
    ++files;
    EXPECT_TRUE(file.path().filename().native().starts_with("2023-11-14T22-13-20-123Z-")) << file.path();
    EXPECT_EQ(file.path().extension(), ".http");
    EXPECT_EQ(std::filesystem::status(file.path()).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(
        readFile(file.path()),
        "POST http://127.0.0.1/v1 HTTP/1.1\r\ncontent-type: application/json\r\nAuthorization: [redacted]\r\nX-New: [redacted]\r\n\r\n"
        R"({"content":"my key is [redacted]"})");
  }
  EXPECT_EQ(files, 2u);

  testing::internal::CaptureStderr();
  RequestDump::write(request, folder.path() / "not mounted");
  EXPECT_TRUE(
      testing::internal::GetCapturedStderr().starts_with("request dump: could not create " + (folder.path() / "not mounted").native()));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "not mounted"));
  EXPECT_TRUE(RequestDump::isEnabled({{"AMBITCAP_DUMP_REQUESTS", "1"}}));
  EXPECT_FALSE(RequestDump::isEnabled({{"AMBITCAP_DUMP_REQUESTS", "true"}}));
}

TEST(TurnUsage, lineAndRecord) {
  EXPECT_EQ(TurnUsageLog::line({}),
            "usage: none reported (expected on the local model; on openrouter it means the response carried no usage block)");
  ChatResponse response{.thinking = "é🙂!", .usage = ChatUsage{.promptTokens = 1000, .completionTokens = 5}};
  EXPECT_EQ(TurnUsageLog::line(response),
            "usage: 1 call(s), prompt 1000 (no cache figure reported), completion 5, thinking 3 chars, cost not reported");
  response.usage = ChatUsage{
      .promptTokens = 1000, .completionTokens = 5, .cachedPromptTokens = 987, .reasoningTokens = 7, .costUSD = 0.0012345, .callCount = 2};
  response.provenance = ChatProvenance{.provider = "P", .servedModel = "M"};
  response.servedByFallback = true;
  EXPECT_EQ(
      TurnUsageLog::line(response),
      "usage: 2 call(s), prompt 1000 (987 cached, 98.7% hit), completion 5, reasoning 7, cost $0.001234, via P, M, SERVED BY FALLBACK");

  const TemporaryFolder folder;
  const auto url = TurnUsageRecordLog::defaultURL(folder.path());
  EXPECT_EQ(TurnUsageRecordLog::read(url, 9).size(), 0u);
  EXPECT_EQ(TurnUsageRecord::from({}, {.layer = "gate"}), std::nullopt);
  const auto full = TurnUsageRecord::from(response, {.layer = "gate", .asOfMs = 1'700'000'000'123, .buildVersion = "b"}).value();
  TurnUsageRecordLog::append(full, url);
  std::ofstream(url, std::ios::app) << "{\"at_ms\": 5, \"lay\n"
                                    << R"({"at_ms":5,"layer":"coach","prompt_tokens":1,"completion_tokens":2,"future":[]})"
                                    << "\n";
  const auto sparse = TurnUsageRecord{.atMs = 5, .layer = "coach", .promptTokens = 1, .completionTokens = 2};
  EXPECT_EQ(TurnUsageRecordLog::read(url, 9), (std::vector{full, sparse}));
  EXPECT_EQ(TurnUsageRecordLog::read(url, 1), std::vector{sparse});
  EXPECT_TRUE(readFile(url).starts_with(
      R"({"at_ms":1700000000123,"build_version":"b","cached_prompt_tokens":987,"call_count":2,"completion_tokens":5,"cost_usd":0.0012345,)"
      R"("layer":"gate","prompt_tokens":1000,"provider":"P","reasoning_tokens":7,"served_by_fallback":true,"served_model":"M","v":1})"
      "\n"))
      << readFile(url);
  EXPECT_THROW(TurnUsageRecordLog::append(JSONValue(1), url), TurnUsageRecordLogError);
}

TEST(NonThinking, onlyThinkChanges) {
  struct Spy : ModelBackend {
    ChatOptions seen;
    ChatResponse chat(const std::vector<ChatMessage>&, const std::vector<ToolSpec>&, const ChatOptions& options,
                      const std::stop_token&) override {
      seen = options;
      return {.text = "t", .thinking = "h"};
    }
  };
  const auto spy = std::make_shared<Spy>();
  NonThinkingModelBackend backend(spy);
  ChatOptions options{.maxTokens = 7, .logprobs = true, .seed = 3, .sessionID = "s", .turn = ChatTurn::reply};
  std::vector<ModelStreamDelta> deltas;
  backend.chatStream({}, {}, options, [&](const auto& delta) { deltas.push_back(delta); }, {});
  EXPECT_EQ(deltas, (std::vector<ModelStreamDelta>{{.text = "t", .thinking = "h"}}));
  options.think = false;
  EXPECT_EQ(spy->seen, options);
}

TEST(OllamaEmbeddingProvider, embed) {
  std::string answer;
  int status = 200;
  LoopbackServer server([&](const auto&, auto& connection) { connection.send(LoopbackServer::answer(answer, status)); });
  CurlTransport transport;
  const OllamaEmbeddingProvider provider({.endpoint = server.baseURL(), .model = "e", .keepAlive = "6m"}, transport);
  answer = R"({"embeddings":[[1,0.5],[2,-1]]})";
  EXPECT_EQ(provider.embed({"a", "b"}, {}), (std::vector<std::vector<double>>{{1, 0.5}, {2, -1}}));
  EXPECT_EQ(server.requests().at(0).path(), "/api/embed");
  EXPECT_EQ(server.requests().at(0).body, R"({"input":["a","b"],"keep_alive":"6m","model":"e"})");
  const auto errorOf = [&] {
    try {
      provider.embed({"a", "b", "c"}, {});
    } catch (const ModelBackendError& error) {
      return error;
    }
    return ModelBackendError::invalidResponse("none");
  };
  EXPECT_EQ(errorOf(), ModelBackendError::invalidResponse("ollama /api/embed: expected 3 embeddings, got 2"));
  answer = R"({"embeddings":[["x"]]})" + std::string(600, ' ');
  EXPECT_TRUE(errorOf().text().starts_with("ollama /api/embed: unexpected response shape: {\"embeddings\""));
  EXPECT_EQ(errorOf().text().size(), std::string("ollama /api/embed: unexpected response shape: ").size() + 500);
  status = 404;
  EXPECT_EQ(errorOf().status(), 404);
}

TEST(SessionDigest, isStable) { EXPECT_EQ(SessionDigest::of("abc"), "ba7816bf8f01cfea414140de5dae2223"); }

}  // namespace
}  // namespace halvo
