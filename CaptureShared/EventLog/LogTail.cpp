#include "CaptureShared/EventLog/LogTail.h"

#include <algorithm>
#include <string>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo::LogTail {

namespace {

constexpr std::int64_t firstPieceBytes = 64 * 1024;

/// The offset of the first line of a piece whose time is known, and that time.
struct Dated {
  std::int64_t offset = 0, ms = 0;
};

/// `piece` begins at `from` in the file, in the middle of a line unless that is 0.
std::optional<Dated> firstDated(std::string_view piece, std::int64_t from, const TimeOf& timeOf) {
  std::size_t at = 0;
  if (from > 0) {
    const auto newline = piece.find('\n');
    if (newline == std::string_view::npos) return std::nullopt;
    at = newline + 1;
  }
  for (auto end = piece.find('\n', at); end != std::string_view::npos; at = end + 1, end = piece.find('\n', at))
    if (const auto ms = timeOf(piece.substr(at, end - at))) return Dated{from + static_cast<std::int64_t>(at), *ms};
  return std::nullopt;
}

}  // namespace

std::int64_t offsetOf(std::int64_t fromMs, const std::filesystem::path& path, const TimeOf& timeOf, std::int64_t slackMs) {
  const auto file = FileHandle::openForRead(path);
  const auto size = FileIdentity::of(file).size;
  for (auto bytes = firstPieceBytes; bytes < size; bytes *= 2) {
    const auto from = size - bytes;
    // A line is never longer than this, unless the file is not a log: then the piece has no dated line, and a longer one is tried.
    const auto piece = file.readAt(static_cast<std::uint64_t>(from), static_cast<std::size_t>(std::min(bytes, firstPieceBytes)));
    if (const auto dated = firstDated(piece, from, timeOf); dated && dated->ms < fromMs - slackMs) return dated->offset;
  }
  return 0;
}

}  // namespace halvo::LogTail
