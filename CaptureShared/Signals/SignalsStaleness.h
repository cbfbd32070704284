#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

/// Whether the sampler's rows are recent enough to judge from.
namespace halvo::SignalsStaleness {

inline constexpr std::int64_t thresholdMs = 180'000;

/// Recording is paused, since when if that is known.
struct Active {
  std::optional<std::int64_t> startedAtMs = {};
};
struct None {};
using Pause = std::variant<None, Active>;

struct StaleButUntrustworthy {
  std::int64_t gapMs = 0;
  bool operator==(const StaleButUntrustworthy&) const = default;
};
struct StaleConfirmed {
  std::int64_t gapMs = 0, lastGoodTickAtMs = 0;
  bool operator==(const StaleConfirmed&) const = default;
};
struct PredatesPause {
  std::int64_t lastTickAtMs = 0, pauseStartedAtMs = 0;
  bool operator==(const PredatesPause&) const = default;
};
struct NotChecked {
  bool operator==(const NotChecked&) const = default;
};
struct Fresh {
  bool operator==(const Fresh&) const = default;
};
using Decision = std::variant<StaleButUntrustworthy, StaleConfirmed, PredatesPause, NotChecked, Fresh>;

bool isStale(std::int64_t latestTickMs, std::int64_t nowMs, std::int64_t threshold = thresholdMs);
/// Only a classifier that ran recently itself may say that the sampler stopped: after sleep the rows are old for an innocent reason.
bool isTrustworthy(std::int64_t nowMs, std::optional<std::int64_t> classifierLastRanAtMs, int regimeGapSec);

struct Moment {
  Pause pause = None{};
  std::optional<std::int64_t> latestTickMs = {};
  std::int64_t nowMs = 0;
  std::optional<std::int64_t> classifierLastRanAtMs = {};  ///< of the previous pass, not of this one
  std::int64_t threshold = thresholdMs;
  int regimeGapSec = 240;
};
Decision decide(const Moment& moment);

/// The log line of a confirmed stop.
std::string reason(std::int64_t gapMs, std::int64_t lastTickAtMs);
std::string reasonPredatesPause(std::int64_t lastTickAtMs, std::int64_t pauseStartedAtMs, std::int64_t nowMs);
/// "45s", "12m", "2h", "2h 5m".
std::string humanDuration(std::int64_t ms);

}  // namespace halvo::SignalsStaleness
