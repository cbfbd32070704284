#include "CaptureShared/Recording/Location/SegmentList.h"

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::FrameLocator {

namespace {

/// A session of a hundred years has 30 MB of rows.
constexpr std::uintmax_t largestFileBytes = 32 << 20;

}  // namespace

SegmentList SegmentList::parse(std::string_view text) {
  SegmentList list;
  for (const auto line : Text::split(text, '\n')) {
    if (Text::isBlank(line)) continue;
    const auto columns = Text::split(line, ',');
    const auto start = columns.size() > 2 ? Text::parseInteger(columns[1]) : std::nullopt;
    const auto end = columns.size() > 2 ? Text::parseInteger(columns[2]) : std::nullopt;
    list.lastLineIsRow = start && end;
    if (list.lastLineIsRow) list.segments.push_back({.filename = std::string(columns[0]), .startFrame = *start, .endFrame = *end});
  }
  return list;
}

SegmentList SegmentList::read(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error) || std::filesystem::file_size(file, error) > largestFileBytes || error) return {};
  try {
    return parse(readFile(file));
  } catch (const std::system_error&) {
    return {};
  }
}

const Segment* SegmentList::holding(std::int64_t frame) const {
  const auto found = std::ranges::find_if(segments, [&](const Segment& one) { return one.startFrame <= frame && frame < one.endFrame; });
  if (found != segments.end()) return &*found;
  const bool isPastTheLast = !segments.empty() && lastLineIsRow && frame >= segments.back().endFrame;
  return isPastTheLast ? &segments.back() : nullptr;
}

std::filesystem::path segmentsPath(const std::filesystem::path& folder, std::int64_t sessionStartMs) {
  return folder / fmt::format("segments-{}.csv", sessionStartMs);
}

}  // namespace halvo::FrameLocator
