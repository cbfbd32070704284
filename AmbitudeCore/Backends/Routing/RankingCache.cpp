#include "AmbitudeCore/Backends/Routing/RankingCache.h"

#include <optional>
#include <system_error>

namespace halvo {

ObservedProviderCost::Aggregate RankingCache::aggregate(const std::filesystem::path& usageLog,
                                                        const ObservedProviderCost::Question& question) {
  FileIdentity identity;
  try {
    identity = FileIdentity::of(usageLog);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
  const std::pair key{usageLog.string(), question.model};
  const auto known = entries_.with([&](Entries& entries) -> std::optional<ObservedProviderCost::Aggregate> {
    const auto entry = entries.find(key);
    if (entry == entries.end()) return std::nullopt;
    const auto& [log, asked, aggregate] = entry->second;
    const auto ageMs = question.nowMs - asked.nowMs;
    const bool holds =
        log == identity && asked.slugByDisplayName == question.slugByDisplayName && ageMs >= 0 && ageMs < freshSec * 1000;
    return holds ? std::optional(aggregate) : std::nullopt;
  });
  if (known) return *known;
  // The identity was taken before the rows: a row appended in between only makes the next call read again.
  auto fresh = ObservedProviderCost::read(usageLog, question);
  entries_.with([&](Entries& entries) { entries.insert_or_assign(key, Entry{identity, question, fresh}); });
  return fresh;
}

}  // namespace halvo
