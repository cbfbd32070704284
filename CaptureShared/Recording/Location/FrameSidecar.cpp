#include "CaptureShared/Recording/Location/FrameSidecar.h"

#include <algorithm>
#include <numeric>
#include <system_error>

#include "CaptureShared/EventLog/LineSplitter.h"

namespace halvo::FrameLocator {

namespace {

/// Where the bisection ends, and by how much its range is widened on each side: about 180 rows.
constexpr std::uint64_t bisectionBytes = 8192;
constexpr std::uint64_t probeBytes = 4096;
/// How far a probe looks for a row: past what a power loss can leave as zeros in a file that grows by 100 bytes a second.
constexpr std::uint64_t probeLimitBytes = 65'536;
constexpr std::uint64_t blockBytes = 65'536;

}  // namespace

std::optional<FrameSidecar> FrameSidecar::open(const std::filesystem::path& file) {
  std::error_code ignored;
  // A pipe of that name would wait for its writer.
  if (!std::filesystem::is_regular_file(file, ignored)) return std::nullopt;
  try {
    auto handle = FileHandle::openForRead(file);
    const auto size = static_cast<std::uint64_t>(FileIdentity::of(handle).size);
    return FrameSidecar(std::move(handle), size);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::string FrameSidecar::bytesAt(std::uint64_t offset, std::uint64_t size) const {
  if (offset >= size_) return {};
  try {
    return file_.readAt(offset, std::min(size, size_ - offset));
  } catch (const std::system_error&) {
    return {};
  }
}

std::optional<SidecarRow> FrameSidecar::firstRowFrom(std::uint64_t offset) const {
  std::optional<SidecarRow> found;
  bool cut = offset > 0;
  LineSplitter lines;
  for (std::uint64_t seen = 0; !found && seen < probeLimitBytes; seen += probeBytes) {
    const auto bytes = bytesAt(offset + seen, probeBytes);
    if (bytes.empty()) break;
    lines.feed(bytes, [&](std::string_view line) {
      if (!std::exchange(cut, false) && !found) found = SidecarRow::parse(line);
    });
  }
  return found;
}

FrameSidecar::Range FrameSidecar::rangeAround(std::int64_t targetMs) const {
  std::uint64_t low = 0, high = size_;
  while (high - low > bisectionBytes) {
    const auto middle = std::midpoint(low, high);
    const auto row = firstRowFrom(middle);
    // With no row behind the middle, what there is to find lies before it.
    (!row || targetMs <= row->realTsMs ? high : low) = middle;
  }
  return {.from = low - std::min(low, bisectionBytes), .to = std::min(size_, high + bisectionBytes)};
}

void FrameSidecar::forEachRow(Range range, const std::function<void(const SidecarRow&)>& visit) const {
  bool cut = range.from > 0;
  LineSplitter lines;
  for (auto at = range.from; at < range.to;) {
    const auto bytes = bytesAt(at, std::min(blockBytes, range.to - at));
    if (bytes.empty()) return;
    at += bytes.size();
    lines.feed(bytes, [&](std::string_view line) {
      if (std::exchange(cut, false)) return;
      if (const auto row = SidecarRow::parse(line)) visit(*row);
    });
  }
}

std::optional<SidecarRow> FrameSidecar::nearestIn(Range range, std::int64_t targetMs) const {
  std::optional<SidecarRow> best;
  forEachRow(range, [&](const SidecarRow& row) {
    if (!best || distanceMs(row.realTsMs, targetMs) < distanceMs(best->realTsMs, targetMs)) best = row;
  });
  return best;
}

std::vector<SidecarRow> FrameSidecar::rows(std::int64_t fromMs, std::int64_t toMs) const {
  std::vector<SidecarRow> rows;
  forEachRow({.from = rangeAround(fromMs).from, .to = rangeAround(toMs).to}, [&](const SidecarRow& row) {
    if (fromMs <= row.realTsMs && row.realTsMs <= toMs) rows.push_back(row);
  });
  if (!std::ranges::is_sorted(rows, {}, &SidecarRow::realTsMs)) std::ranges::stable_sort(rows, {}, &SidecarRow::realTsMs);
  return rows;
}

}  // namespace halvo::FrameLocator
