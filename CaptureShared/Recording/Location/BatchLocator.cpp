#include "CaptureShared/Recording/Location/BatchLocator.h"

#include <utility>

#include "CaptureShared/Recording/Location/FrameSidecar.h"

namespace halvo::FrameLocator {

BatchLocator::BatchLocator(Source source) : source_(std::move(source)) {
  if (const auto sidecar = FrameSidecar::open(DataPaths::frameTimestampsPath(source_.display, source_.root)))
    rows_ = sidecar->rows(source_.fromMs, source_.toMs);
}

LocateResult BatchLocator::locateDetailed(std::int64_t atMs, std::int64_t toleranceMs) {
  const Moment moment{.atMs = atMs, .display = source_.display, .toleranceMs = toleranceMs, .root = source_.root, .cache = source_.cache};
  return locateRow(nearestRow(rows_, atMs), moment, [&](const std::filesystem::path& file) -> const SegmentList& {
    const auto known = segmentsCache_.find(file);
    return known != segmentsCache_.end() ? known->second : segmentsCache_.emplace(file, SegmentList::read(file)).first->second;
  });
}

}  // namespace halvo::FrameLocator
