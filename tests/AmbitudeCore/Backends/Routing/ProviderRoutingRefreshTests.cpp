#include <fstream>
#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/ProviderRoutingGeneration.h"
#include "AmbitudeCore/Backends/Routing/ObservedProviderCost.h"
#include "AmbitudeCore/Backends/Routing/ProviderPricingSnapshot.h"
#include "AmbitudeCore/Backends/Routing/ProviderRoutingRefresh.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using ObservedProviderCost::Aggregate;
using OpenRouterProviderRouting::ProviderPricing;
using test::TemporaryFolder;
using Slugs = std::vector<std::string>;

constexpr std::int64_t nowMs = 1'800'000'000'000, dayMs = 86'400'000, windowMs = 14 * dayMs;
const std::string model(ProviderPricingSnapshot::model);
const std::vector<ProviderPricing> entries{{"deepinfra/fp8", "DeepInfra", 6e-8, 1.5e-8, 1.8e-7},
                                           {"deepinfra/turbo", "DeepInfra", 9e-8, 1.5e-8, 1.8e-7},
                                           {"coreweave", "CoreWeave", 7e-8, std::nullopt, 2e-7},
                                           {"fireworks", "Fireworks", 9e-8, 1e-8, 1.6e-7},
                                           {"cloudflare", "Cloudflare", 1e-9, 1e-9, 1e-9}};
const ObservedProviderCost::Question question{
    .model = model, .nowMs = nowMs, .slugByDisplayName = ObservedProviderCost::slugsByDisplayName(entries)};

TurnUsageRecord row(const std::string& provider) {
  return {.atMs = nowMs, .layer = "gate", .provider = provider, .servedModel = model, .promptTokens = 1000, .completionTokens = 100,
          .cachedPromptTokens = 900, .costUSD = 5e-5};
}

TEST(ObservedProviderCost, fold) {
  const auto with = [](auto change) {
    auto record = row("DeepInfra");
    change(record);
    return record;
  };
  const std::vector<TurnUsageRecord> rows{
      row("DeepInfra"),
      with([](auto& r) { r.atMs = nowMs - windowMs, r.callCount = 3, r.cachedPromptTokens = {}; }),
      with([](auto& r) { r.atMs = nowMs - windowMs - 1; }),
      with([](auto& r) { r.atMs = nowMs + 1; }),
      with([](auto& r) { r.layer = "coach"; }),
      with([](auto& r) { r.costUSD = {}; }),
      with([](auto& r) { r.costUSD = -1; }),
      with([](auto& r) { r.provider = {}; }),
      with([](auto& r) { r.servedModel = "other/model"; }),
      with([](auto& r) { r.servedByFallback = true, r.costUSD = {}, r.provider = {}, r.servedModel = "gemma"; }),
      row("Who?"),
      row("Fireworks")};
  EXPECT_EQ(ObservedProviderCost::fold(rows, question),
            (Aggregate{.observations = {{"deepinfra", 4, 2000, 900, 200, 1e-4}, {"fireworks", 1, 1000, 900, 100, 5e-5}},
                       .excluded = {.outsideWindow = 2, .noCost = 2, .noProvider = 1, .unknownProvider = {"Who?"}, .otherModel = 1,
                                    .servedByFallback = 1},
                       .rowsRead = 11}));
}

TEST(RankingCache, readsALogAgainOnlyWhenItGrewOrTimePassed) {
  const TemporaryFolder folder;
  const auto log = TurnUsageRecordLog::defaultURL(folder.path());
  RankingCache cache;
  EXPECT_EQ(cache.aggregate(log, question), Aggregate{});
  TurnUsageRecordLog::append(row("DeepInfra"), log);
  EXPECT_EQ(cache.aggregate(log, question).rowsRead, 1);
  // The same file to all appearances, so that a second reading would show.
  const auto written = std::filesystem::last_write_time(log);
  std::fstream(log, std::ios::in | std::ios::out) << "#";
  std::filesystem::last_write_time(log, written);
  EXPECT_EQ(cache.aggregate(log, question).rowsRead, 1);
  auto later = question;
  later.nowMs += RankingCache::freshSec * 1000;
  EXPECT_EQ(cache.aggregate(log, later).rowsRead, 0);
  TurnUsageRecordLog::append(row("Fireworks"), log);
  EXPECT_EQ(cache.aggregate(log, later).observations.at(0).slug, "fireworks");
}

TEST(OpenRouterProviderRouting, rank) {
  const Slugs pool{"deepinfra", "coreweave", "fireworks"};
  const auto pricing = OpenRouterProviderRouting::pricingByMember(entries, pool);
  ASSERT_EQ(pricing.size(), 3u);
  EXPECT_EQ(pricing.at("deepinfra").slug, "deepinfra/fp8") << "the cheaper of its two";

  const auto listed = OpenRouterProviderRouting::rank({.pricing = pricing});
  EXPECT_EQ(listed.slugs, (Slugs{"deepinfra", "coreweave", "fireworks"}));
  EXPECT_EQ(listed.explanation,
            "provider ranking (all-in, completion:prompt r=0.11): deepinfra $0.0546/M @ assumed h=0.56; coreweave $0.0584/M @ assumed "
            "h=0.56; fireworks $0.0628/M @ assumed h=0.56; no usage log available, static ranking");

  std::vector<TurnUsageRecord> rows(20, row("DeepInfra"));
  rows.resize(39, row("Fireworks"));
  rows[0].costUSD = 5e-4;
  auto usage = ObservedProviderCost::fold(rows, question);
  EXPECT_EQ(OpenRouterProviderRouting::rank({.pricing = pricing, .usage = &usage}).slugs.front(), "coreweave") << "19 calls are too few";
  rows.insert(rows.end(), {row("Fireworks"), row("Odd\nname"), row("Odd\nname")});
  rows.push_back(row("DeepInfra"));
  rows.back().servedModel = {};
  usage = ObservedProviderCost::fold(rows, question);
  EXPECT_EQ(OpenRouterProviderRouting::rank({.pricing = pricing, .usage = &usage, .unpricedLast = {"deepinfra", "spare"}}),
            (OpenRouterProviderRouting::Ranking{
                {"fireworks", "coreweave", "deepinfra", "spare"},
                "provider ranking (all-in, completion:prompt r=0.10): fireworks $0.0340/M @ measured h=0.90, observed $0.0500/M all-in; "
                "coreweave $0.0564/M @ assumed h=0.56; deepinfra $0.0375/M @ measured h=0.90, observed $0.0725/M all-in; "
                "spare (no price known); read 43 usage row(s), excluded 1 other model, 2 unknown provider [Odd name]"}));

  EXPECT_EQ(OpenRouterProviderRouting::rank({.pricing = {{"b", entries[3]}, {"a", entries[3]}}}).slugs, (Slugs{"a", "b"})) << "ties";
  EXPECT_EQ(OpenRouterProviderRouting::rank({.unpricedLast = pool}).explanation, "provider ranking: no approved providers in snapshot");
}

std::string catalogueOf(const std::vector<ProviderPricing>& list) {
  JSONValue::Array endpoints;
  for (const auto& entry : list) {
    JSONObject prices{{"prompt", fmt::format("{}", entry.uncachedPromptPerToken)}, {"completion", *entry.completionPerToken}};
    if (entry.cachedPromptPerToken) prices.set("input_cache_read", fmt::format("{}", *entry.cachedPromptPerToken));
    endpoints.push_back(JSONObject{{"tag", entry.slug}, {"provider_name", entry.displayName}, {"pricing", prices}});
  }
  return JSONValue(JSONObject{{"data", JSONObject{{"endpoints", endpoints}}}}).dump();
}

ProviderPricingResolver::Fetch serving(const std::vector<ProviderPricing>& list) {
  return [body = catalogueOf(list)](const HTTPRequest&) { return HTTPResponse{.status = 200, .body = body}; };
}

TEST(ProviderRoutingRefresh, refresh) {
  const auto offline = [](const HTTPRequest&) -> HTTPResponse { throw TransportError("no route"); };
  const Slugs ranked{"deepinfra", "coreweave", "fireworks"};
  const struct {
    const char* name;
    bool applies;
    Slugs previous;
    ProviderPricingResolver::Fetch fetch;
    Slugs want;
    bool changed;
    std::string wantEnd;
  } cases[] = {
      {"another backend", false, {"x"}, serving(entries), {"x"}, false, ""},
      {"as before", true, ranked, serving(entries), ranked, false, "static ranking"},
      {"a new order", true, {"x", "y"}, serving(entries), ranked, true,
       ": x, y -> deepinfra, coreweave, fireworks -- rebuilding the backend (the sticky provider choice and its measurements carry over "
       "and are re-evaluated below) and rotating the gate's OpenRouter session id"},
      {"nobody who is approved", true, {"x", "y"}, serving({entries[4]}), {"x", "y"}, false,
       "provider ranking: no approved providers in snapshot; RANKING CAME BACK EMPTY -- keeping the previous order (x, y)"},
      {"offline: those without a price come last", true, {}, offline, {"deepinfra", "coreweave", "fireworks"}, true, "session id"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    int fetches = 0;
    const auto before = ProviderRoutingGeneration::get();
    const auto result = ProviderRoutingRefresh::refresh(
        {.previousSlugs = c.previous, .environment = {.applies = c.applies, .model = model}, .nowMs = nowMs},
        [&](const HTTPRequest& request) { return ++fetches, c.fetch(request); });
    EXPECT_EQ(result.slugs, c.want);
    EXPECT_EQ(result.changed, c.changed);
    EXPECT_EQ(result.generation, before + (c.changed ? 1 : 0));
    EXPECT_EQ(ProviderRoutingGeneration::get(), result.generation);
    EXPECT_TRUE(result.explanation.ends_with(c.wantEnd)) << result.explanation;
    const auto said = fmt::format("\nPROVIDER ORDER CHANGED (generation {}): ", result.generation);
    EXPECT_EQ(result.explanation.find(said) != std::string::npos, c.changed);
    EXPECT_EQ(fetches, c.applies ? 1 : 0);
  }
}

struct MonthCosts {
  double routed = 0, fixed = 0, best = 0;  ///< US dollars: as chosen, all on the cheapest listed, all on the one that proves cheapest
};

/// A month of 100 gate calls a day, one in 200 failing, and a refresh every six hours, against providers whose caches hold what they
/// hold, whatever was assumed.
MonthCosts simulateMonth(const std::map<std::string, double>& realHitRate, const std::string& cheapest) {
  const TemporaryFolder folder;
  const auto log = TurnUsageRecordLog::defaultURL(folder.path());
  const auto pricing = OpenRouterProviderRouting::pricingByMember(entries, {"deepinfra", "coreweave", "fireworks"});
  std::mt19937 random(7);
  std::int64_t now = nowMs;
  StickyProviderSelector selector([&] { return now; }, {});
  RankingCache cache;
  const auto call = [&](const std::string& slug, int prompt, double luck) {
    const auto& price = pricing.at(slug);
    auto record = row(price.displayName);
    const int cached = static_cast<int>(prompt * std::clamp(realHitRate.at(slug) + luck, 0.0, 1.0));
    record.atMs = now, record.promptTokens = prompt, record.cachedPromptTokens = cached, record.completionTokens = prompt / 10;
    record.costUSD = (prompt - cached) * price.uncachedPromptPerToken +
                     cached * price.cachedPromptPerToken.value_or(price.uncachedPromptPerToken) + prompt / 10 * *price.completionPerToken;
    return record;
  };
  MonthCosts costs;
  Slugs order;
  int appended = 0;
  for (int quarter = 0; quarter < 30 * 4; ++quarter) {
    const auto result = ProviderRoutingRefresh::refresh(
        {.previousSlugs = order, .environment = {.applies = true, .model = model}, .usageLog = log, .nowMs = now, .cache = &cache},
        serving(entries));
    order = result.slugs;
    const auto read = fmt::format("; read {} usage row(s)", appended);
    EXPECT_EQ(result.explanation.find(read) != std::string::npos, appended > 0);
    selector.setContext(*result.scoring);
    selector.reevaluate(order);
    for (int i = 0; i < 25; ++i, ++appended, now += dayMs / 100) {
      const int prompt = 4000 + static_cast<int>(random() % 8000);
      const double luck = static_cast<int>(random() % 200) / 1000.0 - 0.1;
      auto slug = *selector.choose(order);
      if (random() % 200 == 0) slug = *selector.moveAfterFailure(order, slug);
      const auto made = call(slug, prompt, luck);
      selector.recordSuccess(slug, ChatUsage{.promptTokens = prompt, .cachedPromptTokens = made.cachedPromptTokens});
      TurnUsageRecordLog::append(made, log);
      costs.routed += *made.costUSD;
      costs.fixed += *call("deepinfra", prompt, luck).costUSD;
      costs.best += *call(cheapest, prompt, luck).costUSD;
    }
  }
  EXPECT_EQ(TurnUsageRecordLog::read(log, 10'000).size(), 3000u) << "over many blocks none is lost";
  EXPECT_EQ(order.front(), cheapest);
  return costs;
}

TEST(ProviderRoutingRefresh, aMonthIsCheaperThanTheStaticOrder) {
  const struct {
    const char* name;
    std::map<std::string, double> realHitRate;
    std::string cheapest;
    double mostOfStatic, mostOfBest;
  } cases[] = {
      {"the cheapest listed hardly caches", {{"deepinfra", 0.15}, {"coreweave", 0.5}, {"fireworks", 0.92}}, "fireworks", 0.6, 1.2},
      {"what looks cheapest untried never caches", {{"deepinfra", 0.8}, {"coreweave", 0.5}, {"fireworks", 0}}, "deepinfra", 1.2, 1.2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto costs = simulateMonth(c.realHitRate, c.cheapest);
    fmt::print("month: routed ${:.4f}, static ${:.4f}, best ${:.4f}\n", costs.routed, costs.fixed, costs.best);
    EXPECT_LT(costs.routed, c.mostOfStatic * costs.fixed);
    EXPECT_LT(costs.routed, c.mostOfBest * costs.best);
  }
}

}  // namespace
}  // namespace halvo
