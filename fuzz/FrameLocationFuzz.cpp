#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Recording/Location/FrameSidecar.h"
#include "CaptureShared/Recording/Location/SegmentList.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"

namespace {

using namespace halvo;
using namespace FrameLocator;

constexpr std::int64_t sessionMs = 1'790'000'000'000;

/// Rows of half a kilobyte, so that a few of them make a file long enough to be bisected.
struct HealthyRows {
  std::string text;
  std::vector<SidecarRow> rows;
  HealthyRows(int firstFrame, int count) {
    const std::string notRead(450, 'x');
    for (std::int64_t frame = firstFrame; frame < firstFrame + count; ++frame) {
      rows.push_back({.realTsMs = sessionMs + frame * 500, .frameIndexInSession = frame, .sessionStartMs = sessionMs});
      text += fmt::format("{},{},,{},{}\n", rows.back().realTsMs, notRead, frame, sessionMs);
    }
  }
};

/// What the bytes hold as rows, and the same through a file.
void checkSidecar(std::string_view bytes) {
  static const HealthyRows before(0, 12), after(10'000, 12);
  static const auto file = [] {
    MemoryFile memory;
    memory.fill(before.text);
    return memory;
  }();
  const auto middle = std::string(bytes.substr(0, 8000)) + "\n";
  file.fill(middle + after.text, before.text.size());
  const auto sidecar = FrameSidecar::open(file.path());
  require(sidecar.has_value());

  std::vector<SidecarRow> found;
  for (const auto line : Text::split(middle, '\n'))
    if (const auto row = SidecarRow::parse(line)) found.push_back(*row);
  auto rows = before.rows;
  rows.insert(rows.end(), found.begin(), found.end());
  rows.insert(rows.end(), after.rows.begin(), after.rows.end());
  const bool isAscending = std::ranges::is_sorted(rows, {}, &SidecarRow::realTsMs);
  const auto inside = found.empty() ? sessionMs + 100'000 : found[found.size() / 2].realTsMs;
  for (const auto target : {inside, inside == INT64_MAX ? INT64_MIN : inside + 1, sessionMs + 5'000'250}) {
    const auto nearest = sidecar->nearest(target);
    require(nearest && std::ranges::find(rows, *nearest) != rows.end());
    if (isAscending) require(nearest == nearestRow(rows, target));
  }
  if (!isAscending) return;
  const auto isIn = [&](const SidecarRow& row) { return inside <= row.realTsMs && row.realTsMs <= sessionMs + 5'000'250; };
  std::vector<SidecarRow> span;
  std::ranges::copy_if(rows, std::back_inserter(span), isIn);
  require(sidecar->rows(inside, sessionMs + 5'000'250) == span);
}

void checkSegments(std::string_view bytes) {
  const auto list = SegmentList::parse(bytes);
  std::string again;
  for (const auto& one : list.segments) {
    again += fmt::format("{},{},{}\n", one.filename, one.startFrame, one.endFrame);
    for (const auto frame : {one.startFrame, one.endFrame, INT64_MIN, INT64_MAX})
      if (const auto* found = list.holding(frame))
        require((found->startFrame <= frame && frame < found->endFrame) || (found == &list.segments.back() && frame >= found->endFrame));
  }
  require(SegmentList::parse(again).segments == list.segments);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkSidecar(bytes);
  checkSegments(bytes);
  return 0;
}
