#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Match.h"

/// Reading the files of labels.
namespace halvo::LabelRows {

/// The rows in file order; a line that does not decode is skipped, no file is no rows. Throws `std::system_error`.
template <class Row>
std::vector<Row> read(const std::filesystem::path& url, std::optional<Row> (*decode)(std::string_view)) {
  try {
    constexpr int approximateBytesPerLine = 200;
    IncrementalJSONLReader<Row> reader(url, decode, approximateBytesPerLine);
    return match(
        reader.readFull(), [](Reset<Row>&& all) { return std::move(all.rows); }, [](Appended<Row>&& more) { return std::move(more.rows); });
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    return {};
  }
}

}  // namespace halvo::LabelRows
