#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"

namespace halvo {

/// Prices of one model's endpoints, and where they came from.
struct ProviderPricingTable {
  struct Live {
    std::int64_t fetchedAtMs = 0;
    bool operator==(const Live&) const = default;
  };
  struct Cached {
    std::int64_t fetchedAtMs = 0;
    std::string liveFailure = {};
    bool operator==(const Cached&) const = default;
  };
  struct CommittedSnapshot {
    std::string liveFailure = {}, cacheFailure = {};
    bool operator==(const CommittedSnapshot&) const = default;
  };
  using Provenance = std::variant<Live, Cached, CommittedSnapshot>;

  std::vector<OpenRouterProviderRouting::ProviderPricing> entries = {};
  Provenance provenance = CommittedSnapshot{};

  /// "provider pricing: live, 12 endpoints, fetched 3s ago" and the like.
  std::string logLine(std::int64_t nowMs) const;
  /// "42s", "5m" or "3h12m"; a negative age counts 0.
  static std::string ageText(std::int64_t ageMs);
};

}  // namespace halvo
