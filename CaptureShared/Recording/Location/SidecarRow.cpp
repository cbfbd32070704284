#include "CaptureShared/Recording/Location/SidecarRow.h"

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::FrameLocator {

std::optional<SidecarRow> SidecarRow::parse(std::string_view line) {
  const auto columns = Text::split(line, ',');
  const auto realTsMs = Text::parseInteger(columns[0]);
  if (!realTsMs) return std::nullopt;
  const auto frame = columns.size() > 4 ? Text::parseInteger(columns[3]) : std::nullopt;
  const auto session = columns.size() > 4 ? Text::parseInteger(columns[4]) : std::nullopt;
  if (!frame || !session) return SidecarRow{.realTsMs = *realTsMs};
  return SidecarRow{.realTsMs = *realTsMs, .frameIndexInSession = frame, .sessionStartMs = session};
}

std::optional<SidecarRow> nearestRow(std::span<const SidecarRow> rows, std::int64_t targetMs) {
  if (rows.empty()) return std::nullopt;
  const auto firstFrom = [&](std::int64_t ms) { return std::ranges::lower_bound(rows, ms, {}, &SidecarRow::realTsMs); };
  const auto after = firstFrom(targetMs);
  if (after == rows.begin()) return *after;
  const auto before = firstFrom(std::prev(after)->realTsMs);
  const bool afterIsNearer = after != rows.end() && distanceMs(after->realTsMs, targetMs) < distanceMs(before->realTsMs, targetMs);
  return afterIsNearer ? *after : *before;
}

}  // namespace halvo::FrameLocator
