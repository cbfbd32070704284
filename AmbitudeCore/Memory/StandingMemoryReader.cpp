#include "AmbitudeCore/Memory/StandingMemoryReader.h"

#include <fmt/format.h>

#include <system_error>

#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"

namespace halvo {

namespace {

std::optional<FileIdentity> identityOf(const std::filesystem::path& file) {
  try {
    return FileIdentity::of(file);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

/// Drops items from the front until the rest fits; answers how many.
template <class T, class F>
std::size_t keepNewest(std::vector<T>& items, std::size_t bytes, F&& size) {
  std::size_t used = 0, kept = 0;
  while (kept < items.size() && (used += size(items[items.size() - 1 - kept])) <= bytes) ++kept;
  const auto dropped = items.size() - kept;
  items.erase(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(dropped));
  return dropped;
}

}  // namespace

const StandingMemoryReader::Reading& StandingMemoryReader::read() {
  const Seen now{identityOf(MemoryStore::standingURL(dataRoot_)), identityOf(MemoryWipeLog::defaultURL(dataRoot_))};
  if (seen_ == now) return reading_;
  try {
    reading_ = load();
    told_.clear();
  } catch (const std::exception& error) {
    reading_ = {.wipeAtMs = reading_.wipeAtMs};
    const auto line = std::string("memory: left out until it can be read: ") + error.what();
    if (line != told_) log_(told_ = line);
  }
  seen_ = now;
  return reading_;
}

StandingMemoryReader::Reading StandingMemoryReader::load() {
  Reading reading{.wipeAtMs = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(dataRoot_))};
  reading_.wipeAtMs = reading.wipeAtMs;  // it counts even when the memory can't be read
  reading.memory = MemoryWipeFilter::standing(MemoryStore::readStanding(dataRoot_), reading.wipeAtMs);
  if (!reading.memory) return reading;
  const auto facts = keepNewest(reading.memory->facts, budgetBytes * 2 / 3, [](const MemoryFact& fact) { return fact.text.size(); });
  const auto lessons = keepNewest(reading.memory->lessons, budgetBytes / 3, [](const std::string& text) { return text.size(); });
  if (facts + lessons > 0)
    log_(fmt::format("memory: too much to hand out; the oldest {} fact(s) and {} lesson(s) stay out", facts, lessons));
  return reading;
}

}  // namespace halvo
