#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The file was read whole: these are all its rows, and what was read before no longer counts.
template <class Row>
struct Reset {
  std::vector<Row> rows;
};
/// What came since the last read.
template <class Row>
struct Appended {
  std::vector<Row> rows;
};
template <class Row>
using IncrementalReadResult = std::variant<Reset<Row>, Appended<Row>>;

/// Follows a growing file of JSON lines: a poll costs one stat when nothing changed and the appended bytes when something did. A line without
/// its newline is left for the next read. One thread at a time.
template <class Row>
class IncrementalJSONLReader {
 public:
  using DecodeLine = std::function<std::optional<Row>(std::string_view)>;

  struct Watermark {
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t mtimeNs = 0;
    std::int64_t completeUpTo = 0;  ///< the offset just behind the last newline consumed
    bool operator==(const Watermark&) const = default;
  };

  IncrementalJSONLReader(std::filesystem::path url, DecodeLine decodeLine, int approximateBytesPerLine)
      : url_(std::move(url)), decodeLine_(std::move(decodeLine)), approximateBytesPerLine_(approximateBytesPerLine) {}

  const std::filesystem::path& url() const { return url_; }
  const std::optional<Watermark>& watermark() const { return watermark_; }
  std::int64_t decodeCallCount() const { return decodeCallCount_; }          ///< complete lines handed to the decoder so far
  std::int64_t appendedRangeReadCount() const { return appendedRangeReadCount_; }

  /// Throws `std::system_error` when the file can't be read; a missing file is ENOENT.
  IncrementalReadResult<Row> read() {
    const auto now = FileIdentity::of(url_);
    if (watermark_ && watermark_->inode == now.inode) {
      if (watermark_->size == now.size && watermark_->mtimeNs == now.mtimeNs) return Appended<Row>{};
      if (now.size >= watermark_->size) {
        try {
          if (auto more = readAppended(now)) return std::move(*more);
        } catch (const std::system_error&) {
          // What the range read could not give, a whole read may; its own failure is the caller's.
        }
      }
    }
    return readWhole(now);
  }

  /// Forgets what was read and reads the whole file.
  IncrementalReadResult<Row> readFull() {
    invalidate();
    return readWhole(FileIdentity::of(url_));
  }
  void invalidate() { watermark_.reset(); }

  /// Leaves out what lies before `offset`, which is 0 or just behind a newline: the next read gives the rows from there on. Throws
  /// `std::system_error`; a missing file is ENOENT.
  void startAt(std::int64_t offset) { watermark_ = Watermark{FileIdentity::of(url_).inode, offset, 0, offset}; }

 private:
  static constexpr std::int64_t chunkBytes = 256 * 1024;

  /// Absent when the range does not start behind a newline: the file was deleted and made anew under the inode it had, or rewritten in place.
  std::optional<Appended<Row>> readAppended(const FileIdentity& now) {
    ++appendedRangeReadCount_;
    Appended<Row> result;
    const auto from = watermark_->completeUpTo;
    std::int64_t consumed = 0;
    if (from < now.size) {
      const auto file = FileHandle::openForRead(url_);
      if (from > 0 && file.readAt(static_cast<std::uint64_t>(from - 1), 1) != "\n") return std::nullopt;
      consumed = walk(file, from, now.size, result.rows);
    }
    watermark_ = Watermark{now.inode, now.size, now.mtimeNs, from + consumed};
    return result;
  }

  Reset<Row> readWhole(const FileIdentity& now) {
    Reset<Row> result;
    result.rows.reserve(static_cast<std::size_t>(now.size / approximateBytesPerLine_));
    watermark_.reset();
    const auto consumed = walk(FileHandle::openForRead(url_), 0, now.size, result.rows);
    watermark_ = Watermark{now.inode, now.size, now.mtimeNs, consumed};
    return result;
  }

  /// Decodes the complete lines in [from, to) and answers the bytes through the last newline.
  std::int64_t walk(const FileHandle& file, std::int64_t from, std::int64_t to, std::vector<Row>& rows) {
    LineSplitter lines;
    std::int64_t at = from;
    // One piece of memory for the whole walk, and the rows' own sized by what the first piece held: fresh memory costs more than decoding.
    const auto room = static_cast<std::size_t>(std::min(chunkBytes, to - from));
    const auto buffer = std::make_unique_for_overwrite<char[]>(room);
    while (at < to) {
      const auto wanted = std::min<std::size_t>(room, static_cast<std::size_t>(to - at));
      const auto came = file.readInto({buffer.get(), wanted}, static_cast<std::uint64_t>(at));
      if (came == 0) break;  // truncated while we read: the next poll sees the smaller size
      at += static_cast<std::int64_t>(came);
      lines.feed({buffer.get(), came}, [&](std::string_view line) {
        ++decodeCallCount_;
        if (auto row = decodeLine_(line)) rows.push_back(std::move(*row));
      });
      const auto expected = rows.size() * static_cast<std::size_t>(to - from) / static_cast<std::size_t>(at - from);
      if (expected > rows.capacity()) rows.reserve(expected + expected / 16);
    }
    return at - from - static_cast<std::int64_t>(lines.pendingBytes());
  }

  std::filesystem::path url_;
  DecodeLine decodeLine_;
  int approximateBytesPerLine_;
  std::optional<Watermark> watermark_;
  std::int64_t decodeCallCount_ = 0, appendedRangeReadCount_ = 0;
};

/// Whether a decoded row is handed on, and in what form. Empty: every row.
template <class Row>
using RowFilter = std::function<bool(Row&)>;

/// The event log and the judgment log, followed.
namespace JSONLReaders {
IncrementalJSONLReader<EventLogEvent> events(const std::filesystem::path& file, RowFilter<EventLogEvent> filter = {});
IncrementalJSONLReader<ClassifierTick> classifierTicks(const std::filesystem::path& file, RowFilter<ClassifierTick> filter = {});
}  // namespace JSONLReaders

}  // namespace halvo
