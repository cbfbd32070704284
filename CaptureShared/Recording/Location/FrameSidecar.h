#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Location/SidecarRow.h"

namespace halvo::FrameLocator {

/// `frame_timestamps.csv`, one row per captured frame in ascending time. It can reach a gigabyte, so a row is found by bisection. A line
/// that is no row is passed over, and so is a last line without its newline, which is still being written. Nothing throws: a stretch that
/// can't be read holds no rows.
class FrameSidecar {
 public:
  /// Absent for anything but a regular file that can be opened. Later rows than it has now are not seen.
  static std::optional<FrameSidecar> open(const std::filesystem::path& file);

  /// Bytes of the file, half open.
  struct Range {
    std::uint64_t from = 0, to = 0;
  };
  /// At most 24 KiB that hold the rows nearest to a moment. Reads 4 KiB for each halving of the file.
  Range rangeAround(std::int64_t targetMs) const;
  /// The nearest of the rows that lie whole in a range; the first of equally near ones.
  std::optional<SidecarRow> nearestIn(Range range, std::int64_t targetMs) const;
  std::optional<SidecarRow> nearest(std::int64_t targetMs) const { return nearestIn(rangeAround(targetMs), targetMs); }

  /// The rows of a closed span of time, in ascending time even where the clock was set back.
  std::vector<SidecarRow> rows(std::int64_t fromMs, std::int64_t toMs) const;

 private:
  FrameSidecar(FileHandle file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
  std::string bytesAt(std::uint64_t offset, std::uint64_t size) const;
  std::optional<SidecarRow> firstRowFrom(std::uint64_t offset) const;
  void forEachRow(Range range, const std::function<void(const SidecarRow&)>& visit) const;

  FileHandle file_;
  std::uint64_t size_ = 0;
};

}  // namespace halvo::FrameLocator
