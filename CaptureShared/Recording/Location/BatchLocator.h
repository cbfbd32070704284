#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <vector>

#include "CaptureShared/Recording/Location/FrameLocator.h"

namespace halvo::FrameLocator {

/// Locates many moments of one display for one clip: the sidecar's rows and each segments file are read once. Answers what `locateDetailed`
/// does for the rows that it has. Used by one thread at a time, and dropped with the clip: later frames are not seen.
class BatchLocator {
 public:
  struct Source {
    int display = 0;
    std::int64_t fromMs = std::numeric_limits<std::int64_t>::min();  ///< only rows from here
    std::int64_t toMs = std::numeric_limits<std::int64_t>::max();    ///< up to here; a row of a gigabyte's sidecar takes 40 bytes in memory
    std::filesystem::path root = DataPaths::dataRoot();
    DirectoryListingCache& cache = DirectoryListingCache::shared();
  };
  explicit BatchLocator(Source source);

  LocateResult locateDetailed(std::int64_t atMs, std::int64_t toleranceMs);
  const std::vector<SidecarRow>& rows() const { return rows_; }

 private:
  Source source_;
  std::vector<SidecarRow> rows_;
  std::map<std::filesystem::path, SegmentList> segmentsCache_;
};

}  // namespace halvo::FrameLocator
