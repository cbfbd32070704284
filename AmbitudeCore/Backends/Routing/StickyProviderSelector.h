#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// Keeps each pool of providers on one of them, so that its prompt cache stays warm, and moves only on a failure or on measured cost.
/// One for a program, shared by all its backends; safe from any thread; its lock is never held across a network call or a log line.
class StickyProviderSelector {
 public:
  static constexpr std::int64_t failureMemorySec = 600;  ///< a provider that failed less long ago is avoided
  static constexpr std::size_t outcomesKept = 50;        ///< for each slug
  static constexpr int minimumPinnedCalls = 20;          ///< before a re-evaluation may move a pool
  static constexpr double switchMargin = 0.2;            ///< how much cheaper another provider must be
  static constexpr int trialCalls = 4;                   ///< up to so many calls a provider counts as if all of its prompt were cached
  static constexpr int shrinkage = 10;                   ///< calls after which a measured rate weighs as much as what was assumed

  struct Success {
    int prompt = 0, cached = 0;  ///< tokens
  };
  struct SuccessWithoutUsage {};
  struct Failure {};
  using Outcome = std::variant<Success, SuccessWithoutUsage, Failure>;

  struct ScoringContext {
    std::map<std::string, OpenRouterProviderRouting::ProviderPricing> pricing = {};  ///< by slug, as pools name it
    std::map<std::string, double> priorHitRate = {};                                 ///< by slug; without one the default
    double completionToPromptRatio = OpenRouterProviderRouting::defaultCompletionToPromptRatio;
  };

  struct Score {
    std::string slug = {};
    double costPerToken = 0;  ///< US dollars per prompt token, its completion share included
    double hitRate = 0, failureRate = 0;
    int pinnedSuccesses = 0, pinnedFailures = 0;
  };

  StickyProviderSelector(std::function<std::int64_t()> nowMs, LogSink log);

  /// The pool's provider; absent only for an empty pool. A pool without one goes to the cheapest that has not failed of late.
  std::optional<std::string> choose(const std::vector<std::string>& pool);
  /// Records a failure of `slug` and answers the provider the pool is on from now; absent when there is no other in it.
  std::optional<std::string> moveAfterFailure(const std::vector<std::string>& pool, const std::string& slug);
  /// Prompt and cached tokens; a success without usage when either figure is missing.
  void recordSuccess(const std::string& slug, const std::optional<ChatUsage>& usage);

  /// What scores are made of; without it the first candidate of a pool is chosen.
  void setContext(ScoringContext context);
  /// For each pool: drops it when its provider is not in `order` any more, keeps it, or moves it to one that is cheaper by the margin and
  /// has not failed of late. Says which. A pool that lost other members lives on as the rest of it.
  void reevaluate(const std::vector<std::string>& order);

  /// Absent without a context or a price for the slug. `pool` gives the price of a cached token where the slug tells none.
  std::optional<Score> score(const std::string& slug, const std::vector<std::string>& pool) const;

  /// The pool's slugs joined, as logs show it.
  static std::string poolKey(const std::vector<std::string>& pool);

 private:
  /// The members sorted: a pool is the same one in whatever order a ranking puts it.
  using Pool = std::vector<std::string>;
  static Pool canonical(std::vector<std::string> pool);

  // All of these under the lock.
  void record(const std::string& slug, Outcome outcome);
  bool failedOfLate(const std::string& slug, std::int64_t nowMs) const;
  std::optional<Score> scoreOf(const std::string& slug, const std::vector<std::string>& pool) const;
  std::optional<std::string> best(const std::vector<std::string>& pool, std::int64_t nowMs) const;
  void dropOrNarrow(const std::vector<std::string>& order, std::vector<std::string>& lines);
  std::string weigh(const Pool& pool, std::string& current, std::int64_t nowMs) const;

  mutable std::mutex lock_;
  std::map<Pool, std::string> currentByPool_;
  std::map<std::string, std::deque<Outcome>> outcomes_;  ///< newest last
  std::map<std::string, std::int64_t> lastFailureAtMs_;
  std::optional<ScoringContext> context_;
  std::function<std::int64_t()> nowMs_;
  LogSink log_;
};

}  // namespace halvo
