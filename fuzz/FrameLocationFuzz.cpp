#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/mman.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Recording/Location/DirectoryListingCache.h"
#include "CaptureShared/Recording/Location/FrameSidecar.h"
#include "CaptureShared/Recording/Location/SegmentList.h"
#include "CaptureShared/Recording/Retention/VideoRetention.h"

namespace {

using namespace halvo;
using namespace FrameLocator;

void require(bool holds) {
  if (!holds) std::abort();
}

FrameSidecar sidecarOf(const FileHandle& memory, std::string_view bytes) {
  if (!memory) throw std::system_error(errno, std::generic_category(), "memfd");
  writeAll(memory.fd(), bytes, "fuzz");
  auto sidecar = FrameSidecar::open(fmt::format("/proc/self/fd/{}", memory.fd()));
  require(sidecar.has_value());
  return std::move(*sidecar);
}

const std::string& healthyRows() {
  static const auto rows = [] {
    std::string text;
    for (int frame = 0; frame < 500; ++frame) text += fmt::format("{},,,{},1790000000000\n", 1'790'000'000'000 + frame * 500, frame);
    return text;
  }();
  return rows;
}

/// What the bytes hold as rows, and the same through a file that is long enough to be bisected.
void checkSidecar(std::string_view bytes) {
  const FileHandle memory(::memfd_create("fuzz", MFD_CLOEXEC));
  const auto text = std::string(bytes.substr(0, 8000)) + "\n" + healthyRows();
  const auto sidecar = sidecarOf(memory, text);
  std::vector<SidecarRow> rows;
  for (const auto line : Text::split(text, '\n'))
    if (const auto row = SidecarRow::parse(line)) rows.push_back(*row);
  const bool isAscending = std::ranges::is_sorted(rows, {}, &SidecarRow::realTsMs);
  for (const auto target : {INT64_MIN, rows.front().realTsMs, rows[rows.size() / 3].realTsMs, std::int64_t{1'790'000'123'250}, INT64_MAX}) {
    const auto found = sidecar.nearest(target);
    require(found && std::ranges::find(rows, *found) != rows.end());
    if (isAscending) require(found == nearestRow(rows, target));
  }
  if (isAscending) require(sidecar.rows(INT64_MIN, INT64_MAX) == rows);
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

/// A name that retention may delete by has the same hour here.
void checkName(std::string_view name) {
  const auto stem = hourStem(name);
  const auto hour = VideoRetention::parseHourPrefix(name);
  if (hour) require(stem && *stem == *hour);
  if (stem) require(hourStem(std::string(*stem) + ".part7.mkv") == stem && hourStem(std::string(*stem) + ".mkv") == stem);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkSidecar(bytes);
  checkSegments(bytes);
  for (const auto name : Text::split(bytes, '\n')) checkName(name);
  return 0;
}
