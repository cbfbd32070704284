#include "AmbitudeCore/Backends/Remote/OpenRouterWire.h"

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/Remote/OpenRouterSessionID.h"
#include "AmbitudeCore/Backends/Remote/OutboundRedaction.h"
#include "AmbitudeCore/Backends/Remote/ProviderAttribution.h"

namespace halvo {
namespace {

using OpenRouterWire::Schema;
using Slugs = std::vector<std::string>;

TEST(OpenRouterWire, provider) {
  const struct {
    const char* name;
    Slugs order;
    std::optional<Slugs> acceptable;
    bool fallbacks;
    std::optional<std::string> pinned;
    Schema schema;
    const char* want;
  } cases[] = {
      {"nothing configured", {}, {}, true, {}, Schema::none, "null"},
      {"a pin beats all", {"a", "b"}, Slugs{"c"}, true, "b", Schema::none,
       R"({"only":["b"],"allow_fallbacks":false,"require_parameters":true})"},
      {"an order", {"a", "b"}, {}, true, {}, Schema::none, R"({"order":["a","b"],"allow_fallbacks":true,"require_parameters":true})"},
      {"an empty choice", {}, Slugs{}, false, {}, Schema::none, R"({"allow_fallbacks":false,"require_parameters":true})"},
      {"a schema keeps the approved", {"coreweave", "deepinfra/fp8", "fireworks"}, {}, false, {}, Schema::requested,
       R"({"order":["deepinfra/fp8","fireworks"],"only":["deepinfra/fp8","fireworks"],"allow_fallbacks":false,"require_parameters":true})"},
      {"a schema within the choice", {"coreweave"}, Slugs{"fireworks", "x"}, false, {}, Schema::requested,
       R"({"only":["fireworks"],"allow_fallbacks":false,"require_parameters":true})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const OpenRouterConfig config{.providerOrder = c.order, .acceptableProviders = c.acceptable, .allowProviderFallbacks = c.fallbacks};
    const auto got = OpenRouterWire::provider(config, c.pinned, c.schema);
    EXPECT_EQ(got ? JSONValue(*got) : JSONValue(), *JSONValue::parse(c.want));
  }
}

TEST(OpenRouterWire, body) {
  const std::vector<ChatMessage> talk{
      ChatMessage::system("s"), ChatMessage::assistant("a", std::vector<ToolCall>{{.name = "x"}}, "why", R"([{"b":1}])"),
      ChatMessage::toolResult("x", "1")};
  OpenRouterConfig config{.model = "anthropic/m", .reasoningEffort = "low"};
  const std::optional<std::string> pinned;
  const auto body = [&](const ChatOptions& options, ChatCompletionsWire::Streaming streaming) {
    return *JSONValue::parse(OpenRouterWire::body({config, pinned, talk, {}, options, streaming}));
  };
  const ChatOptions all{.maxTokens = 9, .logprobs = true, .topLogprobs = 2, .seed = 5, .sessionID = "id", .responseSchemaJSON = "{}"};
  EXPECT_EQ(body(all, ChatCompletionsWire::Streaming::yes), *JSONValue::parse(R"({"model":"anthropic/m","stream":true,"max_tokens":9,
    "usage":{"include":true},"stream_options":{"include_usage":true},"session_id":"id","seed":5,"logprobs":true,"top_logprobs":2,
    "reasoning":{"effort":"low"},"provider":{"allow_fallbacks":false,"require_parameters":true,"only":[]},
    "response_format":{"type":"json_schema","json_schema":{"name":"response","strict":true,"schema":{}}},
    "messages":[{"role":"system","content":[{"type":"text","text":"s","cache_control":{"type":"ephemeral"}}]},
      {"role":"assistant","content":"a","reasoning":"why","reasoning_details":[{"b":1}],
       "tool_calls":[{"id":"call_1_0","type":"function","function":{"name":"x","arguments":"{}"}}]},
      {"role":"tool","content":"1","tool_call_id":"call_1_0","name":"x"}]})"));
  config = {.model = "m"};
  const auto plain = body({.maxTokens = 9, .think = false, .sessionID = ""}, ChatCompletionsWire::Streaming::no);
  EXPECT_EQ(*plain.at({"messages", "0", "content"}), JSONValue("s"));
  for (const auto* key : {"reasoning", "session_id", "provider", "stream_options", "tools"}) EXPECT_FALSE(plain.find(key)) << key;
  EXPECT_EQ(*body({}, ChatCompletionsWire::Streaming::no).find("reasoning"), JSONValue(JSONObject{{"enabled", true}}));
}

TEST(ProviderAttribution, table) {
  const char* none = "HTTP 404 (OpenRouter has no available endpoint for this provider)";
  const struct { int status; const char *body, *want; } cases[] = {
      {429, "", "HTTP 429 (provider rate-limited)"}, {408, "", "HTTP 408 (provider timed out)"}, {500, "", "HTTP 500 (provider error)"},
      {599, "", "HTTP 599 (provider error)"}, {600, "", nullptr}, {404, "..No endpoints found for m", none},
      {404, "No allowed providers are available", none}, {404, "no such model", nullptr}, {401, "No endpoints found", nullptr}};
  for (const auto& c : cases)
    EXPECT_EQ(ProviderAttribution::reason(c.status, c.body), c.want ? std::optional<std::string>(c.want) : std::nullopt) << c.status;
  const std::pair<const char*, std::optional<int>> codes[] = {{"502", 502},      {"\"+429\"", 429}, {"\"-1\"", -1},
                                                              {"429.5", {}},     {"\"429x\"", {}},  {"\"99999999999\"", {}},
                                                              {"1e300", {}},     {"null", {}},      {"true", {}}};
  for (const auto& [code, want] : codes)
    EXPECT_EQ(ProviderAttribution::errorCode(*JSONValue::parse("{\"error\":{\"code\":" + std::string(code) + "}}")), want) << code;
  EXPECT_FALSE(ProviderAttribution::errorCode(*JSONValue::parse(R"({"error":"down"})")));
}

TEST(OutboundRedaction, argumentsAreSeenUnderTheirKeys) {
  const auto safe = OutboundRedaction::redacted(*JSONValue::parse(
      R"({"ssn":"123456789","card":4111111111111111,"list":[{"password":"hunter2hunter2"}],"bank_account":12345678,)"
      R"("n":12345678,"t":"tea"})"));
  for (const auto* secret : {"123456789", "4111111111111111", "hunter2", "\"bank_account\":12345678"})
    EXPECT_EQ(safe.dump().find(secret), std::string::npos) << safe.dump();
  EXPECT_EQ(*safe.find("n"), JSONValue(12345678));
  EXPECT_EQ(*safe.find("t"), JSONValue("tea"));

  const std::vector<ChatMessage> talk{
      ChatMessage::system("ssn 123-45-6789"),
      ChatMessage::assistant("", {}, {}, R"([{"signature":"s","text":"ssn 123-45-6789"},{"text":"tea","id":7}])"),
      ChatMessage::assistant("", {}, {}, "no JSON")};
  const auto sent = OutboundRedaction::redacted(talk);
  EXPECT_EQ(sent[0], talk[0]);
  EXPECT_EQ(sent[1].reasoningDetailsJSON, R"([{"id":7,"text":"tea"}])");
  EXPECT_FALSE(sent[2].reasoningDetailsJSON);
}

TEST(OpenRouterSessionID, holdsWhileTheBeginningDoes) {
  using OpenRouterSessionID::derive;
  const std::vector<EventLogEvent> events{{.tsMs = 9}, {.tsMs = 5}, {.tsMs = 12}};
  EXPECT_EQ(derive(events, {"n", "o"}, 3, 10), OpenRouterSessionID::digest("5\nn\no\n3"));
  EXPECT_EQ(derive(events, {"n", "o"}, 3, 10), derive(events, {"n", "o"}, 3, 20));
  EXPECT_EQ(derive(events, {}, {}, 4), "c545adad1870bd440ccf8d0c076c2ce0802099ca567f0e2d5d48db45e94ff3b6");
}

}  // namespace
}  // namespace halvo
