#include "AmbitudeCore/Backends/Routing/StickyProviderSelector.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

using Score = StickyProviderSelector::Score;

struct Tally {
  int successes = 0, failures = 0;
  int withUsage = 0;
  std::int64_t prompt = 0, cached = 0;
  int calls() const { return successes + failures; }
};

Tally tally(const std::deque<StickyProviderSelector::Outcome>& outcomes) {
  Tally sum;
  for (const auto& outcome : outcomes)
    match(
        outcome,
        [&](const StickyProviderSelector::Success& success) {
          ++sum.successes, ++sum.withUsage;
          sum.prompt += success.prompt;
          sum.cached += success.cached;
        },
        [&](const StickyProviderSelector::SuccessWithoutUsage&) { ++sum.successes; },
        [&](const StickyProviderSelector::Failure&) { ++sum.failures; });
  return sum;
}

/// How much `calls` measured calls weigh against what was assumed.
double weight(int calls) { return static_cast<double>(calls) / (calls + StickyProviderSelector::shrinkage); }

bool contains(const std::vector<std::string>& slugs, const std::string& slug) {
  return std::find(slugs.begin(), slugs.end(), slug) != slugs.end();
}

/// What sorts last where nothing is known.
double costOf(const std::optional<Score>& score) { return score ? score->costPerToken : std::numeric_limits<double>::infinity(); }

std::string shown(const std::string& slug, const std::optional<Score>& score) {
  if (!score) return slug + " unscored";
  return fmt::format("{} ${:.4f}/M h={:.2f} f={:.2f} ({} calls)", slug, score->costPerToken * 1e6, score->hitRate, score->failureRate,
                     score->pinnedSuccesses + score->pinnedFailures);
}

}  // namespace

StickyProviderSelector::StickyProviderSelector(std::function<std::int64_t()> nowMs, LogSink log)
    : nowMs_(std::move(nowMs)), log_(std::move(log)) {}

std::optional<std::string> StickyProviderSelector::choose(const std::vector<std::string>& pool) {
  const auto nowMs = nowMs_();
  const std::lock_guard hold(lock_);
  const auto key = canonical(pool);
  if (const auto current = currentByPool_.find(key); current != currentByPool_.end()) return current->second;
  auto chosen = best(pool, nowMs);
  if (chosen) currentByPool_[key] = *chosen;
  return chosen;
}

std::optional<std::string> StickyProviderSelector::moveAfterFailure(const std::vector<std::string>& pool, const std::string& slug) {
  const auto nowMs = nowMs_();
  const std::lock_guard hold(lock_);
  record(slug, Failure{});
  lastFailureAtMs_[slug] = nowMs;
  const auto key = canonical(pool);
  // Another call may have moved the pool while this one was failing.
  if (const auto current = currentByPool_.find(key); current != currentByPool_.end() && current->second != slug) return current->second;
  auto others = pool;
  std::erase(others, slug);
  auto next = best(others, nowMs);
  if (next) currentByPool_[key] = *next;
  return next;
}

void StickyProviderSelector::recordSuccess(const std::string& slug, const std::optional<ChatUsage>& usage) {
  const std::lock_guard hold(lock_);
  if (!usage || !usage->cachedPromptTokens) return record(slug, SuccessWithoutUsage{});
  const auto prompt = std::max(usage->promptTokens, 0);
  record(slug, Success{.prompt = prompt, .cached = std::clamp(*usage->cachedPromptTokens, 0, prompt)});
}

void StickyProviderSelector::setContext(ScoringContext context) {
  const std::lock_guard hold(lock_);
  context_ = std::move(context);
}

void StickyProviderSelector::reevaluate(const std::vector<std::string>& order) {
  const auto nowMs = nowMs_();
  std::vector<std::string> lines;
  {
    const std::lock_guard hold(lock_);
    dropOrNarrow(order, lines);
    for (auto& [pool, current] : currentByPool_) lines.push_back(weigh(pool, current, nowMs));
  }
  if (log_) std::for_each(lines.begin(), lines.end(), log_);
}

std::optional<Score> StickyProviderSelector::score(const std::string& slug, const std::vector<std::string>& pool) const {
  const std::lock_guard hold(lock_);
  return scoreOf(slug, pool);
}

std::string StickyProviderSelector::poolKey(const std::vector<std::string>& pool) { return Text::join(pool, ", "); }

StickyProviderSelector::Pool StickyProviderSelector::canonical(std::vector<std::string> pool) {
  std::sort(pool.begin(), pool.end());
  pool.erase(std::unique(pool.begin(), pool.end()), pool.end());
  return pool;
}

void StickyProviderSelector::record(const std::string& slug, Outcome outcome) {
  auto& kept = outcomes_[slug];
  kept.push_back(std::move(outcome));
  if (kept.size() > outcomesKept) kept.pop_front();
}

bool StickyProviderSelector::failedOfLate(const std::string& slug, std::int64_t nowMs) const {
  const auto failed = lastFailureAtMs_.find(slug);
  // A failure ahead of a clock that was set back must not bar its provider until the clock gets there.
  return failed != lastFailureAtMs_.end() && failed->second <= nowMs && nowMs - failed->second < failureMemorySec * 1000;
}

std::optional<Score> StickyProviderSelector::scoreOf(const std::string& slug, const std::vector<std::string>& pool) const {
  using OpenRouterProviderRouting::lowerPrice;
  if (!context_) return std::nullopt;
  const auto pricing = context_->pricing.find(slug);
  if (pricing == context_->pricing.end()) return std::nullopt;
  const auto outcomes = outcomes_.find(slug);
  const auto sum = outcomes == outcomes_.end() ? Tally{} : tally(outcomes->second);

  double hitRate = 1.0;
  if (sum.calls() > trialCalls) {
    const auto prior = context_->priorHitRate.find(slug);
    hitRate = prior == context_->priorHitRate.end() ? OpenRouterProviderRouting::defaultCacheHitRate : prior->second;
  }
  if (sum.prompt >= 1 && sum.withUsage > 0) {
    const auto w = weight(sum.withUsage);
    hitRate = static_cast<double>(sum.cached) / static_cast<double>(sum.prompt) * w + (1 - w) * hitRate;
  }
  const double failureRate = sum.calls() >= 1 ? static_cast<double>(sum.failures) / sum.calls() * weight(sum.calls()) : 0.0;

  std::optional<double> cached;
  for (const auto& member : pool)
    if (const auto known = context_->pricing.find(member); known != context_->pricing.end())
      cached = lowerPrice(cached, known->second.cachedPromptPerToken);
  const OpenRouterProviderRouting::AllIn allIn{.effectiveHitRate = hitRate * (1 - failureRate),
                                               .completionToPromptRatio = context_->completionToPromptRatio,
                                               .cachedWhenUnknown = cached.value_or(0)};
  return Score{.slug = slug,
               .costPerToken = allIn.cost(pricing->second),
               .hitRate = hitRate,
               .failureRate = failureRate,
               .pinnedSuccesses = sum.successes,
               .pinnedFailures = sum.failures};
}

std::optional<std::string> StickyProviderSelector::best(const std::vector<std::string>& pool, std::int64_t nowMs) const {
  auto candidates = pool;
  std::erase_if(candidates, [&](const std::string& slug) { return failedOfLate(slug, nowMs); });
  if (candidates.empty()) candidates = pool;
  std::optional<std::string> chosen;
  double lowest = 0;
  for (const auto& slug : candidates) {
    const auto cost = costOf(scoreOf(slug, pool));
    if (!chosen || cost < lowest) chosen = slug, lowest = cost;
  }
  return chosen;
}

void StickyProviderSelector::dropOrNarrow(const std::vector<std::string>& order, std::vector<std::string>& lines) {
  std::map<Pool, std::string> narrowed;
  for (auto pool = currentByPool_.begin(); pool != currentByPool_.end();) {
    const auto& [members, current] = *pool;
    auto rest = members;
    std::erase_if(rest, [&](const std::string& slug) { return !contains(order, slug); });
    if (rest == members) {
      ++pool;
      continue;
    }
    if (contains(order, current))
      narrowed.emplace(std::move(rest), current);
    else
      lines.push_back(
          fmt::format("openrouter provider: pool [{}] is no longer in the order; its next call picks afresh", poolKey(members)));
    pool = currentByPool_.erase(pool);
  }
  currentByPool_.merge(narrowed);  // a pool that was there already keeps its own provider
}

std::string StickyProviderSelector::weigh(const Pool& pool, std::string& current, std::int64_t nowMs) const {
  const auto mine = scoreOf(current, pool);
  std::optional<Score> better;
  std::vector<std::string> scores;
  for (const auto& slug : pool) {
    const auto score = scoreOf(slug, pool);
    scores.push_back(shown(slug, score));
    if (score && slug != current && !failedOfLate(slug, nowMs) && score->costPerToken < costOf(better)) better = score;
  }
  const auto all = Text::join(scores, "; ");
  const auto outcomes = outcomes_.find(current);
  const auto pinned = outcomes == outcomes_.end() ? 0 : static_cast<int>(outcomes->second.size());
  if (pinned < minimumPinnedCalls)
    return fmt::format("openrouter provider: keeping {} -- {} pinned calls yet [{} needed: {}]", current, pinned, minimumPinnedCalls, all);

  constexpr int marginPercent = static_cast<int>(switchMargin * 100);
  // Without a price of its own there is nothing that another could beat.
  if (!mine || !better || better->costPerToken >= (1 - switchMargin) * mine->costPerToken)
    return fmt::format(
        "openrouter provider: keeping {} -- no other provider has "
        "measured cost beats the current provider by more than {}% [{}]",
        current, marginPercent, all);
  const auto old = std::exchange(current, better->slug);
  return fmt::format("OPENROUTER PROVIDER SWITCH: {} -> {} (re-evaluation: measured cost beats the current provider by more than {}%) [{}]",
                     old, current, marginPercent, all);
}

}  // namespace halvo
