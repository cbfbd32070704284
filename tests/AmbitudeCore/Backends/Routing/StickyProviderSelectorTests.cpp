#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/Routing/StickyProviderSelector.h"

namespace halvo {
namespace {

using Slugs = std::vector<std::string>;
using Context = StickyProviderSelector::ScoringContext;

const Slugs pool{"a", "b", "c"};

/// A selector with a clock and a log of its own.
struct Scene {
  std::int64_t nowMs = 1'000'000'000;
  Slugs lines;
  StickyProviderSelector selector{[this] { return nowMs; }, [this](const std::string& line) { lines.push_back(line); }};

  void serve(const std::string& slug, int times, int prompt = 0, int cached = 0) {
    for (int i = 0; i < times; ++i) selector.recordSuccess(slug, ChatUsage{.promptTokens = prompt, .cachedPromptTokens = cached});
  }
};

/// Nothing cached, nothing completed: the score is the price per token.
Context flat(std::initializer_list<std::pair<const char*, double>> prices) {
  Context context{.completionToPromptRatio = 0};
  for (const auto& [slug, price] : prices)
    context.pricing[slug] = {.slug = slug, .uncachedPromptPerToken = price, .cachedPromptPerToken = price};
  return context;
}

TEST(StickyProviderSelector, score) {
  const struct {
    const char* name;
    int hits, bare, failures;  // successes with 1000 tokens, 800 of them cached; successes without usage; failures
    double wantHitRate, wantFailureRate;
  } cases[] = {
      {"untried: as if all were cached", 0, 0, 0, 1.0, 0},
      {"four calls: still the trial's prior", 4, 0, 0, 0.8 * 4 / 14 + 10.0 / 14, 0},
      {"five: the slug's own prior", 5, 0, 0, 0.8 * 5 / 15 + 0.6 * 10 / 15, 0},
      {"without usage: a call, but no measurement", 0, 5, 0, 0.6, 0},
      {"failures count as calls", 0, 0, 5, 0.6, 1.0 * 5 / 15},
      {"one failure in ten", 9, 0, 1, 0.8 * 9 / 19 + 0.6 * 10 / 19, 0.1 * 10 / 20},
      {"the 51st pushes out the first", 1, 50, 0, 0.6, 0},
      {"the 50th does not", 1, 49, 0, 0.8 * 1 / 11 + 0.6 * 10 / 11, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Scene scene;
    scene.selector.setContext({.pricing = {{"a", {.slug = "a", .uncachedPromptPerToken = 10, .completionPerToken = 30}},
                                           {"b", {.slug = "b", .uncachedPromptPerToken = 9, .cachedPromptPerToken = 2}}},
                               .priorHitRate = {{"a", 0.6}},
                               .completionToPromptRatio = 0.1});
    scene.serve("a", c.hits, 1000, 800);
    for (int i = 0; i < c.bare; ++i) scene.selector.recordSuccess("a", i % 2 ? std::nullopt : std::optional(ChatUsage{.promptTokens = 9}));
    for (int i = 0; i < c.failures; ++i) scene.selector.moveAfterFailure({"a"}, "a");
    const auto score = scene.selector.score("a", pool);
    ASSERT_TRUE(score);
    EXPECT_NEAR(score->hitRate, c.wantHitRate, 1e-12);
    EXPECT_NEAR(score->failureRate, c.wantFailureRate, 1e-12);
    const auto e = c.wantHitRate * (1 - c.wantFailureRate);
    EXPECT_NEAR(score->costPerToken, 10 * (1 - e) + 2 * e + 3, 1e-12) << "the pool's lowest cached price stands in for the missing one";
    EXPECT_NEAR(scene.selector.score("a", {"a"})->costPerToken, 10 * (1 - e) + 3, 1e-12) << "none is known: 0";
    EXPECT_LE(score->pinnedSuccesses + score->pinnedFailures, 50);
    EXPECT_FALSE(scene.selector.score("x", pool));
  }
  Scene scene;
  EXPECT_FALSE(scene.selector.score("a", pool)) << "no context";
  scene.selector.setContext(flat({{"a", 1}}));
  for (int i = 0; i < 6; ++i) scene.selector.recordSuccess("a", ChatUsage{.promptTokens = 10, .cachedPromptTokens = 2'000'000'000});
  EXPECT_LE(scene.selector.score("a", pool)->hitRate, 1.0) << "more cached than asked is no better than all";
}

TEST(StickyProviderSelector, choosesTheCheapestThatHasNotFailedOfLate) {
  const struct {
    const char* name;
    std::initializer_list<std::pair<const char*, double>> prices;
    std::vector<std::pair<std::string, int>> failedSecAgo;
    Slugs pool;
    std::optional<std::string> want;
  } cases[] = {{"no scores: the first", {}, {}, pool, "a"},
               {"the cheapest", {{"a", 3}, {"b", 2}, {"c", 4}}, {}, pool, "b"},
               {"unscored last", {{"c", 9}}, {}, pool, "c"},
               {"failed 599 s ago", {{"a", 3}, {"b", 2}, {"c", 4}}, {{"b", 599}}, pool, "a"},
               {"failed 600 s ago", {{"a", 3}, {"b", 2}, {"c", 4}}, {{"b", 600}}, pool, "b"},
               {"failed in a future that a clock has left", {{"a", 3}, {"b", 2}}, {{"b", -5}}, pool, "b"},
               {"all failed: all are candidates", {{"a", 3}, {"b", 2}, {"c", 4}}, {{"a", 1}, {"b", 1}, {"c", 1}}, pool, "b"},
               {"a pool of one", {}, {{"a", 1}}, {"a"}, "a"},
               {"an empty pool", {}, {}, {}, std::nullopt}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Scene scene;
    if (c.prices.size() > 0) scene.selector.setContext(flat(c.prices));
    const auto now = scene.nowMs;
    for (const auto& [slug, ago] : c.failedSecAgo) {
      scene.nowMs = now - ago * 1000;
      EXPECT_EQ(scene.selector.moveAfterFailure({slug}, slug), std::nullopt);
    }
    scene.nowMs = now;
    EXPECT_EQ(scene.selector.choose(c.pool), c.want);
  }
}

TEST(StickyProviderSelector, staysUntilAFailureMovesIt) {
  Scene scene;
  EXPECT_EQ(scene.selector.choose(pool), "a");
  scene.selector.setContext(flat({{"a", 9}, {"b", 2}, {"c", 1}}));
  EXPECT_EQ(scene.selector.choose({"c", "b", "a"}), "a") << "a cheaper one or another order is no reason";
  EXPECT_EQ(scene.selector.moveAfterFailure(pool, "a"), "c");
  EXPECT_EQ(scene.selector.moveAfterFailure(pool, "a"), "c") << "a call that was under way meanwhile changes nothing";
  EXPECT_EQ(scene.selector.moveAfterFailure(pool, "c"), "b");
  EXPECT_EQ(scene.selector.choose(pool), "b");
  EXPECT_EQ(scene.selector.choose({"a", "b"}), "b") << "another pool is another choice, with the same failures known";
}

TEST(StickyProviderSelector, reevaluate) {
  const std::string keeping = "openrouter provider: keeping a -- ";
  const std::string noOther = keeping + "no other provider has measured cost beats the current provider by more than 20% [";
  const std::string moves =
      "OPENROUTER PROVIDER SWITCH: a -> b (re-evaluation: measured cost beats the current provider by more than 20%) [";
  const struct {
    const char* name;
    int calls;
    std::initializer_list<std::pair<const char*, double>> prices;
    bool othersFailed;
    Slugs order;
    std::string wantLine, wantCurrent;
  } cases[] = {
      {"too few calls", 19, {{"a", 10}, {"b", 1}}, false, pool, keeping + "19 pinned calls yet [", "a"},
      {"at 0.80 it stays", 20, {{"a", 10}, {"b", 8}}, false, pool, noOther, "a"},
      {"at 0.79 it moves", 20, {{"a", 10}, {"b", 7.9}, {"c", 9}}, false, pool, moves, "b"},
      {"to the cheapest, which failed just now", 20, {{"a", 10}, {"b", 1}, {"c", 9}}, true, pool, noOther, "a"},
      {"nothing is priced", 20, {}, false, pool, noOther, "a"},
      {"the current one is not priced", 20, {{"b", 1}}, false, pool, noOther, "a"},
      {"it left the order", 20, {{"b", 2}, {"c", 1}}, false, {"b", "c"},
       "openrouter provider: pool [a, b, c] is no longer in the order; its next call picks afresh", "c"},
      {"another one left the order", 20, {{"a", 10}, {"b", 9}}, false, {"b", "a"}, noOther, "a"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Scene scene;
    ASSERT_EQ(scene.selector.choose(pool), "a");
    scene.serve("a", c.calls);
    scene.selector.setContext(flat(c.prices));
    if (c.othersFailed) scene.selector.moveAfterFailure({"b"}, "b");
    scene.selector.reevaluate(c.order);
    ASSERT_EQ(scene.lines.size(), 1u);
    EXPECT_EQ(scene.lines[0].substr(0, c.wantLine.size()), c.wantLine);
    EXPECT_EQ(scene.selector.choose(c.order), c.wantCurrent);
  }
}

TEST(StickyProviderSelector, bearsManyThreads) {
  std::atomic<std::int64_t> nowMs{0};
  std::atomic<int> lines{0}, strangers{0};
  StickyProviderSelector selector([&] { return nowMs += 1000; }, [&](const std::string&) { ++lines; });
  const auto call = [&](unsigned seed) {
    for (unsigned i = seed; i < seed + 1000; ++i) {
      const auto slug = selector.choose(pool);
      if (!slug || std::find(pool.begin(), pool.end(), *slug) == pool.end()) ++strangers;
      if (i % 7 == 0) selector.moveAfterFailure(pool, *slug);
      else selector.recordSuccess(*slug, ChatUsage{.promptTokens = 100, .cachedPromptTokens = static_cast<int>(i % 100)});
      if (const auto score = selector.score(*slug, pool); score && score->pinnedSuccesses + score->pinnedFailures > 50) ++strangers;
    }
  };
  {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 4; ++i) threads.emplace_back(call, i * 13);
    for (int i = 0; i < 200; ++i) {
      selector.setContext(flat({{"a", 1.0 + i % 3}, {"b", 2}, {"c", 3}}));
      selector.reevaluate(pool);
    }
  }
  EXPECT_EQ(strangers, 0);
  selector.reevaluate(pool);
  EXPECT_GT(lines, 0);
}

}  // namespace
}  // namespace halvo
