#include "AmbitudeCore/Backends/Routing/ProviderPricingTable.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"

namespace halvo {

std::string ProviderPricingTable::logLine(std::int64_t nowMs) const {
  return match(
      provenance,
      [&](const Live& live) {
        return fmt::format("provider pricing: live, {} endpoints, fetched {} ago", entries.size(), ageText(nowMs - live.fetchedAtMs));
      },
      [&](const Cached& cached) {
        return fmt::format("provider pricing: CACHED ({} old), {} endpoints — live fetch failed: {}", ageText(nowMs - cached.fetchedAtMs),
                           entries.size(), cached.liveFailure);
      },
      [&](const CommittedSnapshot& snapshot) {
        return fmt::format(
            "provider pricing: COMMITTED SNAPSHOT (offline floor), {} endpoints; live fetch failed: {}; cache unavailable: {}",
            entries.size(), snapshot.liveFailure, snapshot.cacheFailure);
      });
}

std::string ProviderPricingTable::ageText(std::int64_t ageMs) {
  const auto sec = std::max<std::int64_t>(ageMs, 0) / 1000;
  if (sec < 60) return fmt::format("{}s", sec);
  if (sec < 3600) return fmt::format("{}m", sec / 60);
  return fmt::format("{}h{:02}m", sec / 3600, sec / 60 % 60);
}

}  // namespace halvo
