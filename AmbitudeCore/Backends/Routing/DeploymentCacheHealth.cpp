#include "AmbitudeCore/Backends/Routing/DeploymentCacheHealth.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

namespace halvo::DeploymentCacheHealth {
namespace {

constexpr std::int64_t dayMs = 86'400'000;

struct Sum {
  std::int64_t prompt = 0, cached = 0;
  int turns = 0;
  void add(const TurnUsageRecord& row) {
    prompt += row.promptTokens;
    cached += std::clamp(*row.cachedPromptTokens, 0, row.promptTokens);
    ++turns;
  }
  double rate() const { return prompt > 0 ? static_cast<double>(cached) / static_cast<double>(prompt) : 0; }
};

struct Deployment {
  std::string version = {};
  std::vector<const TurnUsageRecord*> rows = {};
  std::int64_t startMs = std::numeric_limits<std::int64_t>::max();

  Sum firstDays(int days) const {
    Sum sum;
    for (const auto* row : rows)
      if (row->atMs < startMs + days * dayMs) sum.add(*row);
    return sum;
  }
};

bool counts(const TurnUsageRecord& row, std::int64_t nowMs) {
  return row.buildVersion && row.cachedPromptTokens && row.promptTokens > 0 && !row.servedByFallback && row.atMs <= nowMs;
}

/// Each layer's builds in the order they began.
std::map<std::string, std::vector<Deployment>> deployments(const std::vector<TurnUsageRecord>& rows, std::int64_t nowMs) {
  std::map<std::string, std::map<std::string, Deployment>> byVersion;
  for (const auto& row : rows) {
    if (!counts(row, nowMs)) continue;
    auto& deployment = byVersion[row.layer][*row.buildVersion];
    deployment.version = *row.buildVersion;
    deployment.rows.push_back(&row);
    deployment.startMs = std::min(deployment.startMs, row.atMs);
  }
  std::map<std::string, std::vector<Deployment>> byLayer;
  for (auto& [layer, versions] : byVersion) {
    for (auto& [version, deployment] : versions) byLayer[layer].push_back(std::move(deployment));
    std::stable_sort(byLayer[layer].begin(), byLayer[layer].end(),
                     [](const Deployment& a, const Deployment& b) { return a.startMs < b.startMs; });
  }
  return byLayer;
}

/// Adds the hit rate of each of the build's days that has enough turns.
void addDays(const Deployment& deployment, const Config& config, std::vector<double>& rates) {
  std::map<std::int64_t, Sum> days;
  for (const auto* row : deployment.rows) days[(row->atMs - deployment.startMs) / dayMs].add(*row);
  for (const auto& [day, sum] : days)
    if (sum.turns >= config.minimumTurnsADay) rates.push_back(sum.rate());
}

double mean(const std::vector<double>& values) {
  double sum = 0;
  for (const auto value : values) sum += value;
  return values.empty() ? 0 : sum / static_cast<double>(values.size());
}

/// The sample's standard deviation; 0 below two values.
double spread(const std::vector<double>& values) {
  if (values.size() < 2) return 0;
  const auto middle = mean(values);
  double sum = 0;
  for (const auto value : values) sum += (value - middle) * (value - middle);
  return std::sqrt(sum / static_cast<double>(values.size() - 1));
}

CheckpointOutcome outcome(const Finding& finding, const std::vector<double>& priorRates, const Config& config) {
  if (finding.sampleTurnCount < config.minimumTurns) return CheckpointOutcome::insufficientSample;
  if (priorRates.empty()) return CheckpointOutcome::newBaseline;
  if (finding.priorDeploymentDays < config.minimumPriorDays) return CheckpointOutcome::insufficientPriorSpread;
  const auto tolerated = config.toleranceSigma * std::max(spread(priorRates), config.leastSigma);
  return finding.actualHitRate < finding.expectedHitRate - tolerated ? CheckpointOutcome::flagged : CheckpointOutcome::ok;
}

}  // namespace

std::vector<Checkpoint> audit(const std::vector<TurnUsageRecord>& rows, std::int64_t nowMs, const Config& config) {
  std::vector<Checkpoint> checkpoints;
  for (const auto& [layer, builds] : deployments(rows, nowMs)) {
    std::vector<double> priorRates;
    for (auto build = builds.begin(); build != builds.end(); ++build) {
      const auto endMs = std::next(build) == builds.end() ? nowMs : std::next(build)->startMs;
      for (const auto days : config.checkpointDays) {
        if (build->startMs + days * dayMs > endMs) continue;
        const auto sum = build->firstDays(days);
        Finding finding{.layer = layer,
                        .buildVersion = build->version,
                        .checkpointDays = days,
                        .expectedHitRate = mean(priorRates),
                        .actualHitRate = sum.rate(),
                        .toleranceSigma = config.toleranceSigma,
                        .sampleTurnCount = sum.turns,
                        .priorDeploymentDays = static_cast<int>(priorRates.size())};
        const auto verdict = outcome(finding, priorRates, config);
        checkpoints.push_back({verdict, std::move(finding)});
      }
      addDays(*build, config, priorRates);
    }
  }
  return checkpoints;
}

}  // namespace halvo::DeploymentCacheHealth
