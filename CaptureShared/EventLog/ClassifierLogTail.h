#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/LogFileRead.h"

/// The newest judgments, read from the end of the file.
namespace halvo::ClassifierLogTail {

inline constexpr std::size_t defaultChunkBytes = 262'144;
inline constexpr std::size_t defaultMaxBytes = 16'777'216;

struct Row {
  std::string at = {};
  std::optional<std::string> state = {};
  bool operator==(const Row&) const = default;
};
struct Result {
  std::vector<Row> ticks = {};  ///< in file order
  std::int64_t bytesRead = 0;
  bool truncated = false;  ///< `maxBytes` ended the walk while older rows remained
};

struct Request {
  std::filesystem::path file = {};
  std::optional<std::int64_t> sinceMs = {};  ///< the first older row ends the walk and is not returned
  std::size_t chunkBytes = defaultChunkBytes;
  std::size_t maxBytes = defaultMaxBytes;
};
LogFileRead::Outcome<Result> read(const Request& request);

/// The complete lines in the last `maxBytes` of a file, oldest first; a line cut by the bound is left out. Throws `std::system_error`.
std::vector<std::string> lastLines(const std::filesystem::path& file, std::size_t maxBytes);

}  // namespace halvo::ClassifierLogTail
