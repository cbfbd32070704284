#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "AmbitudeCore/Backends/Routing/ObservedProviderCost.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// Remembers the fold of a usage log by (path, model), so that a log that has not grown is not read again. Safe from any thread; the log is
/// read outside the lock.
class RankingCache {
 public:
  static constexpr std::int64_t freshSec = 600;  ///< a fold older than this is made again: rows leave its window

  /// As `ObservedProviderCost::read`.
  ObservedProviderCost::Aggregate aggregate(const std::filesystem::path& usageLog, const ObservedProviderCost::Question& question);

 private:
  struct Entry {
    FileIdentity log = {};
    ObservedProviderCost::Question question = {};
    ObservedProviderCost::Aggregate aggregate = {};
  };
  using Entries = std::map<std::pair<std::string, std::string>, Entry>;
  LockedValue<Entries> entries_;
};

}  // namespace halvo
