#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/Routing/CachedProviderPricing.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterEndpointsResponse.h"
#include "AmbitudeCore/Backends/Routing/ProviderPricingResolver.h"
#include "AmbitudeCore/Backends/Routing/ProviderPricingSnapshot.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/CurlTransport.h"
#include "CaptureShared/Net/TransportText.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using OpenRouterProviderRouting::ProviderPricing;
using test::LoopbackServer;
using test::TemporaryFolder;

constexpr std::int64_t nowMs = 1'800'000'000'000;
const std::string model(ProviderPricingSnapshot::model);
const std::string key = "sk-or-v1-0123456789abcdef0123456789abcdef";
const std::string catalogue =
    R"({"data":{"endpoints":[{"tag":"fireworks","provider_name":"Fireworks","pricing":{"prompt":"0.0000002","completion":"0.0000006"}}]}})";
const std::vector<ProviderPricing> fireworks{{"fireworks", "Fireworks", 2e-7, std::nullopt, 6e-7}};

TEST(OpenRouterEndpointsResponse, leavesOutWhatHasNoReadablePrice) {
  const auto endpoints = [](const std::string& endpoint) {
    const auto read = OpenRouterEndpointsResponse::parse(R"({"data":{"endpoints":[)" + endpoint + "]}}");
    return read ? static_cast<int>(read->endpoints.size()) : -1;
  };
  const auto priced = [](const std::string& prompt) { return R"({"tag":"a","pricing":{"prompt":)" + prompt + "}}"; };
  for (const auto& good :
       {std::string(R"({"tag":"a/fp8","provider_name":"A","pricing":{"prompt":"6e-8","input_cache_read":"0.000000015","completion":"0"}})"),
        priced(R"(6e-8,"input_cache_read":null)"), priced(R"("0.01")")})
    EXPECT_EQ(endpoints(good), 1) << good;
  for (const auto& bad :
       {priced(R"("0.011")"), priced(R"("-1")"), priced(R"("nan")"), priced(R"("inf")"), priced(R"("1e-999")"), priced(R"("0.1 dollars")"),
        priced(R"("")"), priced("true"), priced(R"("1e-7","completion":"free")"), priced(R"("1e-7","input_cache_read":"-1")"),
        std::string(R"({"tag":"a","pricing":{"completion":"1e-7"}})"), std::string(R"({"tag":"a\nb","pricing":{"prompt":"1e-7"}})"),
        std::string(R"({"tag":"","pricing":{"prompt":"1e-7"}})"), std::string(R"({"pricing":{"prompt":"1e-7"}})"), std::string(R"("a")")})
    EXPECT_EQ(endpoints(bad), 0) << bad;
  EXPECT_EQ(OpenRouterEndpointsResponse::parse(catalogue)->endpoints, fireworks);
  for (const char* body : {"", "{", "[]", R"({"data":[]})", R"({"data":{"endpoints":{}}})"})
    EXPECT_FALSE(OpenRouterEndpointsResponse::parse(body)) << body;
}

TEST(CachedProviderPricing, aFileCutAnywhereIsNoCache) {
  const TemporaryFolder folder;
  const auto file = CachedProviderPricing::defaultURL(folder.path());
  CachedProviderPricing pricing{.fetchedAtMs = nowMs, .model = model, .entries = ProviderPricingSnapshot::entries()};
  pricing.entries.push_back(fireworks[0]);
  pricing.write(file);
  EXPECT_EQ(CachedProviderPricing::read(file), pricing);
  const auto text = readFile(file);
  for (std::size_t size = 0; size < text.size(); ++size) ASSERT_FALSE(CachedProviderPricing::decode(text.substr(0, size))) << size;
  folder.write("huge.json", text + std::string(CachedProviderPricing::largestFile, ' '));
  EXPECT_FALSE(CachedProviderPricing::read(folder.path() / "huge.json"));
  EXPECT_FALSE(CachedProviderPricing::read(folder.path())) << "a folder";
  EXPECT_THROW(pricing.write(folder.path() / "missing" / "x.json"), std::system_error);
  EXPECT_FALSE(CachedProviderPricing::decode(
      R"({"fetched_at_ms":1,"model":"m","entries":[{"slug":"a","displayName":"A","uncachedPromptPerToken":-1}]})"));
}

HTTPResponse offline(const HTTPRequest&) { throw TransportError(TransportText::couldNotConnect("refused, with " + key)); }

TEST(ProviderPricingResolver, liveThenCacheThenSnapshot) {
  const auto answers = [](int status, std::string body) { return [=](const HTTPRequest&) { return HTTPResponse{status, {}, body}; }; };
  const std::string floorText = "provider pricing: COMMITTED SNAPSHOT (offline floor), ";
  const auto cache = [](std::int64_t ageSec, const std::string& of = model) {
    return CachedProviderPricing{.fetchedAtMs = nowMs - ageSec * 1000, .model = of, .entries = fireworks}.encode();
  };
  const auto floor = [&](const std::string& live, const std::string& why) {
    return floorText + "3 endpoints; live fetch failed: " + live + "; cache unavailable: " + why;
  };
  const struct {
    const char* name;
    ProviderPricingResolver::Fetch fetch;
    std::optional<std::string> cacheFile;
    std::string want;
  } cases[] = {
      {"live", answers(200, catalogue), "{", "provider pricing: live, 1 endpoints, fetched 0s ago"},
      {"a failing service, a fresh cache", answers(500, catalogue), cache(90),
       "provider pricing: CACHED (1m old), 1 endpoints — live fetch failed: HTTP 500"},
      {"any other success", answers(204, catalogue), cache(21'600),
       "provider pricing: CACHED (6h00m old), 1 endpoints — live fetch failed: HTTP 204"},
      {"expired", answers(302, ""), cache(21'601), floor("HTTP 302", "cache older than hard expiry (6h00m)")},
      {"from a future far away", answers(401, ""), cache(-90'000), floor("HTTP 401", "cache older than hard expiry (25h00m)")},
      {"an empty catalogue, a corrupt cache", answers(200, R"({"data":{"endpoints":[]}})"), "{\"model\":",
       floor("the catalogue has no endpoints", "no readable cache")},
      {"no catalogue, no cache", answers(200, "<html>"), std::nullopt, floor("the reply is not a catalogue", "no readable cache")},
      {"another model's cache", answers(500, ""), cache(1, "other/model"), floor("HTTP 500", "no readable cache")}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TemporaryFolder folder;
    const auto file = CachedProviderPricing::defaultURL(folder.path());
    if (c.cacheFile) folder.write(file.filename(), *c.cacheFile);
    const auto table = ProviderPricingResolver::resolve({.model = model, .apiKey = key, .cacheURL = file, .nowMs = nowMs}, c.fetch);
    EXPECT_EQ(table.logLine(nowMs), c.want);
    const bool isFloor = c.want.starts_with(floorText);
    EXPECT_EQ(table.entries, isFloor ? ProviderPricingSnapshot::entries() : fireworks);
    if (c.want.starts_with("provider pricing: live")) {
      EXPECT_EQ(readFile(file), cache(0));
    }
  }

  std::vector<std::string> lines;
  const auto log = [&](const std::string& line) { lines.push_back(line); };
  auto table = ProviderPricingResolver::resolve({.model = model, .cacheURL = "/nowhere/at/all.json", .nowMs = nowMs, .log = log},
                                                answers(200, catalogue));
  EXPECT_EQ(table.entries, fireworks) << "prices in hand outlive a cache that can't be written";
  EXPECT_EQ(lines.size(), 1u);

  table = ProviderPricingResolver::resolve({.model = "other/model", .apiKey = key, .nowMs = nowMs}, offline);
  EXPECT_TRUE(table.entries.empty()) << "the snapshot is one model's";
  const auto line = table.logLine(nowMs);
  EXPECT_TRUE(line.starts_with(floorText + "0 endpoints; live fetch failed: Error Domain=NSURLErrorDomain Code=-1004")) << line;
  EXPECT_TRUE(line.ends_with("; cache unavailable: no cache path configured")) << line;
  EXPECT_EQ(line.find(key), std::string::npos);
}

TEST(ProviderPricingResolver, fetchesOverTheWire) {
  LoopbackServer server([&](const LoopbackServer::Request& request, LoopbackServer::Connection& connection) {
    const std::string huge(ProviderPricingResolver::largestCatalogue + 1, ' ');
    const auto* moved = "HTTP/1.1 302 Found\r\nLocation: /api/v1/stolen\r\nContent-Length: 0\r\n\r\n";
    if (request.path().starts_with("/moved")) return connection.send(moved);
    connection.send(LoopbackServer::answer(request.path().starts_with("/huge") ? huge : catalogue));
  });
  CurlTransport transport;
  std::stop_source stop;
  const auto fetch = ProviderPricingResolver::fetchOver(transport, stop.get_token());
  ProviderPricingResolver::Request request{.baseURL = server.baseURL(), .model = model, .apiKey = key, .nowMs = nowMs};
  EXPECT_EQ(ProviderPricingResolver::resolve(request, fetch).entries, fireworks);
  EXPECT_EQ(server.requests().at(0).path(), "/api/v1/models/deepseek/deepseek-v4-flash-0731/endpoints");
  EXPECT_NE(server.requests().at(0).head.find("Authorization: Bearer " + key), std::string::npos);

  request.apiKey.clear();
  request.baseURL = server.baseURL() + "/moved";
  try {
    ProviderPricingResolver::fetchLive(request, fetch);
    ADD_FAILURE();
  } catch (const ProviderPricingError& error) {
    EXPECT_EQ(std::pair(error.kind(), error.status()), std::pair(ProviderPricingError::Kind::httpStatus, 302));
  }
  EXPECT_EQ(server.requests().size(), 2u) << "the redirect was not followed";
  EXPECT_EQ(server.requests().at(1).head.find("Authorization"), std::string::npos);
  request.baseURL = server.baseURL() + "/huge";
  EXPECT_THROW(ProviderPricingResolver::fetchLive(request, fetch), TransportError);
  stop.request_stop();
  EXPECT_THROW(ProviderPricingResolver::resolve(request, fetch), Cancelled);
}

TEST(ProviderPricingResolver, baseURLOf) {
  const std::pair<const char*, const char*> cases[] = {{"https://openrouter.ai/api/v1/chat/completions", "https://openrouter.ai"},
                                                       {"http://[::1]:8080/x/api/v1/chat/completions", "http://[::1]:8080/x"},
                                                       {"https://host:1/v2/chat?q", "https://host:1"},
                                                       {"https://host", "https://host"}};
  for (const auto& [endpoint, want] : cases) EXPECT_EQ(ProviderPricingResolver::baseURLOf(endpoint), want);
}

}  // namespace
}  // namespace halvo
