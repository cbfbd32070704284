#include "CaptureShared/Recording/Location/FrameLocator.h"

#include <algorithm>

#include "CaptureShared/Recording/Location/FrameSidecar.h"

namespace halvo::FrameLocator {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t msPerFrame = static_cast<std::int64_t>(1000 / fps);
constexpr std::int64_t smallestFileBytes = 4096;       ///< a smaller file is a header without frames
constexpr std::uint64_t largestBirthDistanceMs = 300'000;  ///< five minutes

/// When the segment's first frame was due, and its file was made; absent for figures that no recording has.
std::optional<std::int64_t> expectedBirthMs(std::int64_t sessionStartMs, std::int64_t startFrame) {
  std::int64_t sinceStart = 0, expected = 0;
  if (__builtin_mul_overflow(startFrame, msPerFrame, &sinceStart)) return std::nullopt;
  if (__builtin_add_overflow(sessionStartMs, sinceStart, &expected)) return std::nullopt;
  return expected;
}

using Entry = DirectoryListingCache::Entry;

/// A recorder that was started again within the hour leaves several files of it: the birth tells which is the segment's.
std::optional<fs::path> fileBornNear(std::int64_t expectedMs, std::string_view stem, const std::vector<Entry>& entries) {
  const Entry* best = nullptr;
  auto entry = std::ranges::lower_bound(entries, stem, {}, [](const Entry& e) { return std::string_view(e.hourPrefix); });
  for (; entry != entries.end() && entry->hourPrefix == stem; ++entry) {
    if (entry->size && *entry->size < smallestFileBytes) continue;
    if (!best || distanceMs(entry->birthMs, expectedMs) < distanceMs(best->birthMs, expectedMs)) best = &*entry;
  }
  if (!best || distanceMs(best->birthMs, expectedMs) > largestBirthDistanceMs) return std::nullopt;
  return best->url;
}

}  // namespace

LocateResult locateRow(const std::optional<SidecarRow>& nearest, const Moment& moment,
                       const std::function<const SegmentList&(const fs::path&)>& segmentsOf) {
  if (!nearest || moment.toleranceMs < 0) return NoFrameNearby{};
  if (distanceMs(nearest->realTsMs, moment.atMs) > static_cast<std::uint64_t>(moment.toleranceMs)) return NoFrameNearby{};
  if (!nearest->frameIndexInSession || !nearest->sessionStartMs) return UnsupportedEra{};
  const auto folder = DataPaths::videoDir(moment.display, moment.root);
  const auto& segments = segmentsOf(segmentsPath(folder, *nearest->sessionStartMs));
  const auto* segment = segments.holding(*nearest->frameIndexInSession);
  const auto stem = segment ? hourStem(segment->filename) : std::nullopt;
  const auto expected = segment ? expectedBirthMs(*nearest->sessionStartMs, segment->startFrame) : std::nullopt;
  if (!stem || !expected) return NoFrameNearby{};
  auto file = fileBornNear(*expected, *stem, *moment.cache.entries(folder));
  if (!file) return NoFrameNearby{};
  return Located{.file = std::move(*file),
                 .frameIndex = *nearest->frameIndexInSession,
                 .frameRealMs = nearest->realTsMs,
                 .segmentStartFrame = segment->startFrame};
}

LocateResult locateDetailed(const Moment& moment) {
  const auto sidecar = FrameSidecar::open(DataPaths::frameTimestampsPath(moment.display, moment.root));
  SegmentList list;
  return locateRow(sidecar ? sidecar->nearest(moment.atMs) : std::nullopt, moment,
                   [&](const fs::path& file) -> const SegmentList& { return list = SegmentList::read(file); });
}

std::optional<Located> locate(const Moment& moment) {
  auto result = locateDetailed(moment);
  auto* located = std::get_if<Located>(&result);
  return located ? std::optional(std::move(*located)) : std::nullopt;
}

}  // namespace halvo::FrameLocator
