#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"

#include <mutex>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/Factory/CoachBackend.h"
#include "AmbitudeCore/Backends/Factory/Onboarding.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "tests/AmbitudeCore/Backends/Factory/ShortEnvironment.h"
#include "tests/support/Eventually.h"
#include "tests/support/RemoteService.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace ModelBackendFactory;
using test::env, test::RemoteService;
using Lines = std::vector<std::string>;

/// A remote service over TLS, the inference server of this machine, and whatever else AMBITCAP_MODEL_ENDPOINT may point at.
struct World {
  std::function<void(const RemoteService::Request&, RemoteService::Answer&)> remoteAnswer = [](const auto&, auto& answer) {
    answer.json(200, RemoteService::reply("far"));
  };
  RemoteService remote{[this](const auto& request, auto& answer) { remoteAnswer(request, answer); }};
  static void answerLocally(const test::LoopbackServer::Request&, test::LoopbackServer::Connection& connection) {
    connection.send(test::LoopbackServer::answer(R"({"choices":[{"message":{"content":"near"},"finish_reason":"stop"}]})"));
  }
  test::LoopbackServer local{answerLocally}, other{answerLocally};
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard({{"SSL_CERT_FILE", remote.certificateFile().string()}});
  std::mutex lock;
  Lines said, sending;
  std::int64_t nowMs = 1'000'000;

  /// An environment's "{remote}" and "{other}" become addresses of this world.
  Parts parts(Environment environment) {
    for (auto& [key, text] : environment)
      text = text == "{remote}" ? remote.baseURL() : text == "{other}" ? other.baseURL() + "/own/chat" : text;
    return {.transport = transport.get(),
            .localBaseURL = local.baseURL(),
            .selector = std::make_shared<StickyProviderSelector>([this] { return nowMs; }, nullptr),
            .surroundings = {.clock = {.nowMs = [this] { return nowMs; }, .wait = Clock::system().wait},
                             .log =
                                 [this](const std::string& line) {
                                   const std::lock_guard hold(lock);
                                   (line.starts_with("openrouter provider: sending") ? sending : said).push_back(line);
                                 },
                             .environment = environment}};
  }
  std::string log() {
    const std::lock_guard hold(lock);
    return fmt::format("{}", fmt::join(said, "\n"));
  }
};

std::string chatModel(const std::vector<test::LoopbackServer::Request>& requests) {
  for (const auto& request : requests)
    if (const auto body = JSONValue::parse(request.body)) return *body->find("model")->stringValue();
  return "";
}

/// What comes back for "hello", or the error's words.
std::string asked(ModelBackend& backend) {
  try {
    const auto response = backend.chat({ChatMessage::user("hello"), ChatMessage::user("you")}, {}, {}, {});
    return response.text + " from " + response.servedBy.value_or("-") + (response.servedByFallback ? " instead" : "");
  } catch (const std::exception& error) {
    return error.what();
  }
}

const std::string offlineLine =
    "model backend: offline mode is on -- local model only; AMBITCAP_MODEL_BACKEND, OPENROUTER_API_KEY and AMBITCAP_MODEL_FALLBACK are all "
    "ignored";
const std::string refusal =
    "model backend: AMBITCAP_MODEL_ENDPOINT ignored: an override must be https, or plain http only to a loopback host (#993)";
const std::string unreachable =
    "model backend: openrouter unreachable (http 500: {}) — falling back to the local model for this turn, and for the next 60s";

const Environment remote = env("B=openrouter KEY=sk-key ENDPOINT={remote}");
Environment with(Environment base, const Environment& more) {
  for (const auto& [key, text] : more) base[key] = text;
  return base;
}

TEST(ModelBackendFactory, fromEnvironment) {
  const struct {
    const char* name;
    Environment environment;
    bool remoteIsUp;
    std::string answer, localModel, log;  ///< model: as the local server, or the other one, was asked for it
  } cases[] = {
      {"nothing said", {}, true, "near from the local model", "gemma4:12b-it-qat", ""},
      {"its model", env("B=local MODEL=a CHECK=b"), true, "near from the local model", "a", ""},
      {"a loopback endpoint of its own", env("ENDPOINT={other}"), true, "near from the local model", "other gemma4:12b-it-qat", ""},
      {"a refused endpoint", env("ENDPOINT=http://a.example"), true, "near from the local model", "gemma4:12b-it-qat", refusal},
      {"remote", remote, true, "far from openrouter", "", ""},
      {"remote, away, its own fallback", with(remote, env("SPARE=f")), false, "near from the local model instead", "f", unreachable},
      {"remote, away, no fallback", with(remote, env("FALLBACK=0")), false, "http 500: {}", "", ""},
      {"offline beats key and backend", with(remote, env("OFFLINE=1 MODEL=far/away")), true, "near from the local model",
       "gemma4:12b-it-qat",
       offlineLine + "\nmodel backend: AMBITCAP_MODEL_ENDPOINT ignored: offline mode is on, and it is not the local model's"},
      {"offline, a server elsewhere", env("OFFLINE=1 ENDPOINT=https://a.example"), true, "near from the local model", "gemma4:12b-it-qat",
       offlineLine + "\nmodel backend: AMBITCAP_MODEL_ENDPOINT ignored: offline mode accepts a loopback host only"},
      {"offline, another loopback server", env("OFFLINE=1 ENDPOINT={other}"), true, "near from the local model", "other gemma4:12b-it-qat",
       offlineLine},
      {"the coach service", env("B=proxy PROXY={remote} KEY=sk-key"), true, "far from proxy", "", ""},
      {"the coach service alone", env("B=proxy PROXY={remote} FALLBACK=0"), true, "far from proxy", "", ""},
      {"the coach service, without an address", env("B=proxy"), true, "the coach service has no address; set AMBITCAP_PROXY_URL", "",
       "model backend: proxy selected but no usable AMBITCAP_PROXY_URL and no compiled-in URL"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    World world;
    if (!c.remoteIsUp) world.remoteAnswer = [](const auto&, auto& answer) { answer.json(500, "{}"); };
    EXPECT_EQ(asked(*fromEnvironment(world.parts(c.environment))), c.answer);
    const auto other = chatModel(world.other.requests());
    EXPECT_EQ(other.empty() ? chatModel(world.local.requests()) : "other " + other, c.localModel);
    // A remote failure comes with lines of the provider's own.
    EXPECT_TRUE(c.remoteIsUp ? world.log() == c.log : world.log().ends_with(c.log)) << world.log();
    for (const auto& request : world.remote.requests())
      EXPECT_EQ(request.header("Authorization").value_or("none"), c.environment.contains("AMBITCAP_PROXY_URL") ? "none" : "Bearer sk-key");
  }
}

TEST(ModelBackendFactory, theRemoteRequest) {
  const struct { const char* name; Environment more; const char* provider; } cases[] = {
      {"the pool's provider", {}, R"({"allow_fallbacks":false,"only":["deepinfra"],"require_parameters":true})"},
      {"pinned", env("PIN=x"), R"({"allow_fallbacks":false,"only":["x"],"require_parameters":true})"},
      {"another model is not ranked", env("MODEL=x/y"), ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    World world;
    EXPECT_EQ(asked(*fromEnvironment(world.parts(with(remote, c.more)))), "far from openrouter");
    const auto body = JSONValue::parse(world.remote.requests().at(0).body);
    EXPECT_EQ(body->find("provider") ? body->find("provider")->dump() : "", c.provider);
    EXPECT_EQ(body->find("reasoning")->dump(), R"({"effort":"low"})");
    EXPECT_EQ(*body->find("model")->stringValue(), remoteModel(with(remote, c.more)));
  }
}

TEST(ModelBackendFactory, theCoachServicePacesAndRoutes) {
  const struct { const char* name; int status; std::string_view route; std::string answer, log; } cases[] = {
      {"paced", 429, "", "near from the local model instead",
       "model backend: proxy rate-limited this call — the local model answers it; the next call asks proxy again"},
      {"sent to the local model", 409, "local", "near from the local model instead", ""},
      {"a route of another build", 400, "moon", "http 400: {}", "moon is not a route this build knows"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    World world;
    world.remoteAnswer = [&](const auto&, auto& answer) {
      answer.json(c.status, "{}", {{c.route.empty() ? "X-Other" : "X-Halvo-Route", c.route}});
    };
    const auto backend = fromEnvironment(world.parts(env("B=proxy PROXY={remote}")));
    EXPECT_EQ(asked(*backend), c.answer);
    EXPECT_EQ(world.log(), c.log);
    for (const auto& request : world.local.requests())
      EXPECT_EQ(request.body.empty(), request.body.find(R"(hello\n\nyou)") == std::string::npos) << "local templates want alternating speakers";
    asked(*backend);
    EXPECT_EQ(world.remote.connections(), 2u) << "the service is asked again at the next call";
  }
}

TEST(ModelBackendFactory, aServerElsewhereGetsRedactedText) {
  // An address that is not a loopback one can't be reached here; the text is seen on its way to the transport.
  struct Spy : HTTPTransport {
    std::string sent;
    HTTPResponse send(const HTTPRequest& request, const std::stop_token&) override {
      sent += request.url + request.body;
      return {.status = 200, .body = R"({"choices":[{"message":{"content":"ok"}}]})"};
    }
    HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>&, const std::stop_token& stop) override {
      return send(request, stop);
    }
  } spy;
  for (const auto* url : {"https://box.example", "http://127.0.0.1:9"}) {
    spy.sent.clear();
    Parts parts{
        .transport = &spy, .localBaseURL = "http://127.0.0.1:1", .surroundings = {.environment = {{"AMBITCAP_MODEL_ENDPOINT", url}}}};
    fromEnvironment(parts)->chat({ChatMessage::user("my card is 4111 1111 1111 1111")}, {}, {}, {});
    EXPECT_NE(spy.sent.find(std::string(url) + "/v1/chat/completions"), std::string::npos);
    EXPECT_EQ(spy.sent.find("4111") == std::string::npos, std::string_view(url).starts_with("https"));
    spy.sent.clear();
    localCheck(parts)->chat({ChatMessage::user("?")}, {}, {.think = true}, {});
    EXPECT_EQ(spy.sent.find(url), std::string::npos) << "small checks never leave the machine's own server";
    EXPECT_NE(spy.sent.find(R"("enable_thinking":false)"), std::string::npos);
  }
}

TEST(ModelBackendFactory, forConsolidation) {
  const std::string local = "consolidation backend: local llama-server (gemma4:12b-it-qat";
  const struct { const char* name; Environment environment; std::string log; } cases[] = {
      {"a key", env("KEY=k"), local + ") primary, retried; openrouter (deepseek/deepseek-v4-flash-0731) fallback"},
      {"no key", {}, local + "), no remote fallback (no OPENROUTER_API_KEY, or AMBITCAP_MODEL_FALLBACK disables it)"},
      {"no fallback", env("KEY=k FALLBACK=FALSE"), local + "), no remote fallback (AMBITCAP_MODEL_FALLBACK disables it)"},
      {"offline", env("KEY=k OFFLINE=1"), local + "), no remote fallback (offline mode is on)"},
      {"proxy", env("B=proxy PROXY={remote}"), local + ") primary, retried; proxy fallback"},
      {"remote", env("B=openrouter MODEL=x/y KEY=k"), local + ") primary, retried; openrouter (x/y) fallback"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    World world;
    EXPECT_EQ(asked(*forConsolidation(world.parts(c.environment), [] { return true; })).substr(0, 25), "near from the local model");
    EXPECT_EQ(world.log(), c.log);
    EXPECT_EQ(world.remote.connections(), 0u);
  }
  World world;
  EXPECT_THROW(forConsolidation(world.parts(env("B=cloud")), [] { return true; }), FatalConfigurationError);
  for (const auto& unusable : {env("B=cloud"), env("B=openrouter KEY=")})
    EXPECT_THROW(fromEnvironment(world.parts(unusable)), FatalConfigurationError);

  // A local model that is away for the night: retried until the caller has enough of waiting, then asked for remotely.
  int waits = 0;
  auto parts = world.parts(remote);
  parts.localBaseURL = "http://127.0.0.1:1";
  EXPECT_EQ(asked(*forConsolidation(parts, [&] { return ++waits < 2; })), "far from openrouter instead");
  EXPECT_NE(world.log().find("the local model: retry wait interrupted"), std::string::npos);
}

TEST(ModelBackendFactory, forOnboarding) {
  World world;
  using Onboarding::Where;
  EXPECT_EQ(asked(*forOnboarding(world.parts(remote), Where::localOnly)), "near from the local model");
  EXPECT_EQ(world.log(), "onboarding backend: local model (local-only was chosen)");
  world.said.clear();
  EXPECT_EQ(asked(*forOnboarding(world.parts(remote), Where::remote)), "far from openrouter");
  EXPECT_EQ(world.log(), "onboarding backend: openrouter (deepseek/deepseek-v4-flash-0731, reasoning=low)");
  world.remoteAnswer = [](const auto&, auto& answer) { answer.json(500, "{}"); };
  EXPECT_EQ(asked(*forOnboarding(world.parts(remote), Where::remote)), "http 500: {}") << "setup never falls back";
  world.said.clear();
  EXPECT_THROW(forOnboarding(world.parts({}), Where::remote), Onboarding::Error);
  EXPECT_EQ(world.log(),
            "onboarding backend: no OPENROUTER_API_KEY -- refusing to silently fall back to the local model (onboarding must "
            "never run on the local model, #770)");
}

TEST(ModelBackendFactory, providersAreRankedBesideTheCalls) {
  World world;
  test::TemporaryFolder folder;
  std::atomic<bool> catalogueMayAnswer{false};
  world.remoteAnswer = [&](const RemoteService::Request& request, RemoteService::Answer& answer) {
    if (request.method == "POST") return answer.json(200, RemoteService::reply("far"));
    test::eventually([&] { return catalogueMayAnswer.load(); });
    answer.json(200, R"({"data":{"endpoints":[)"
                     R"({"tag":"fireworks","provider_name":"Fireworks","pricing":{"prompt":"0.00000001","completion":"0.00000001"}},)"
                     R"({"tag":"deepinfra","provider_name":"DeepInfra","pricing":{"prompt":"0.000001","completion":"0.000001"}}]}})");
  };
  const auto lastSent = [&] {
    const std::lock_guard hold(world.lock);
    return world.sending.back();
  };
  auto parts = world.parts(remote);
  const auto backend = refreshedFromEnvironment(
      parts, {.pricingCache = folder.path() / "provider-pricing.json", .usageLog = folder.path() / "turn-usage.jsonl"});
  EXPECT_EQ(asked(*backend), "far from openrouter") << "a slow catalogue holds nobody up";
  EXPECT_EQ(lastSent(), "openrouter provider: sending to deepinfra (pool deepinfra, coreweave, fireworks)");
  catalogueMayAnswer = true;
  ASSERT_TRUE(test::eventually([&] { return world.log().find("PROVIDER ORDER CHANGED") != std::string::npos; }));
  EXPECT_TRUE(
      test::eventually([&] { return asked(*backend) == "far from openrouter" && lastSent().find("coreweave") == std::string::npos; }));
  EXPECT_TRUE(parts.selector->score("deepinfra", {"deepinfra"}));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "provider-pricing.json"));
}

}  // namespace
}  // namespace halvo
