#include "agents/Capturer/CaptureIndex.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "CaptureShared/DataRoot/DataPaths.h"

namespace halvo {
namespace {

constexpr std::uint64_t longestLine = 4096;

[[noreturn]] void fail(int code, const std::filesystem::path& file) {
  throw std::system_error(code, std::generic_category(), file.string());
}

}  // namespace

LineFile::LineFile(std::filesystem::path file)
    : path_(std::move(file)), file_(::open(path_.c_str(), O_CREAT | O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600)) {
  if (!file_) fail(errno, path_);
  const auto size = static_cast<std::uint64_t>(FileIdentity::of(file_).size);
  const auto from = size - std::min(size, longestLine);
  const auto tail = file_.readAt(from, longestLine);
  if (tail.empty() || tail.back() == '\n') return;
  const auto newline = tail.rfind('\n');
  if (newline == std::string::npos && from > 0)
    append("\n");  // no line of ours, so nothing of ours to cut
  else if (::ftruncate(file_.fd(), static_cast<off_t>(newline == std::string::npos ? 0 : from + newline + 1)) != 0) fail(errno, path_);
}

void LineFile::append(std::string_view lines) {
  if (lines.empty()) return;
  const auto before = FileIdentity::of(file_).size;
  const auto written = ::write(file_.fd(), lines.data(), lines.size());
  if (written == static_cast<ssize_t>(lines.size())) return;
  const int code = written < 0 ? errno : ENOSPC;
  if (written > 0 && ::ftruncate(file_.fd(), before) != 0) fail(errno, path_);
  fail(code, path_);
}

CaptureIndex::CaptureIndex(int display, const std::filesystem::path& root)
    : folder_(DataPaths::videoDir(display, root)),
      timestamps_((makePrivateFolder(folder_), DataPaths::frameTimestampsPath(display, root))),
      meta_(DataPaths::frameMetaPath(display, root)) {}

std::int64_t CaptureIndex::freeSessionStart(std::int64_t nowMs) const {
  while (std::filesystem::exists(FrameLocator::segmentsPath(folder_, nowMs))) ++nowMs;
  return nowMs;
}

void CaptureIndex::writeSegments(std::int64_t sessionStartMs, const std::vector<FrameLocator::Segment>& segments) const {
  std::string text;
  for (const auto& segment : segments) text += fmt::format("{},{},{}\n", segment.filename, segment.startFrame, segment.endFrame);
  writeFileAtomically(FrameLocator::segmentsPath(folder_, sessionStartMs), text);
}

void CaptureIndex::appendRows(const std::vector<Row>& rows) {
  std::string lines;
  for (const auto& row : rows) lines += fmt::format("{},,,{},{}\n", row.realTsMs, row.frameIndexInSession, row.sessionStartMs);
  timestamps_.append(lines);
}

void CaptureIndex::appendMeta(const Meta& meta) {
  meta_.append(fmt::format("{{\"frameIndexInSession\":{},\"height\":{},\"maskedWindows\":{},\"realTsMs\":{},\"sessionStartMs\":{},"
                           "\"width\":{}}}\n",
                           meta.frame.frameIndexInSession, meta.height, meta.maskedWindows, meta.frame.realTsMs, meta.frame.sessionStartMs,
                           meta.width));
}

}  // namespace halvo
