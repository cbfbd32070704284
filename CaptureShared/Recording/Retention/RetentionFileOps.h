#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace halvo::VideoRetentionSweep {

namespace fs = std::filesystem;

/// All that a sweep does with files. The real ones follow no link, neither the file's own name nor its folder's.
struct FileOps {
  std::function<std::vector<std::string>(const fs::path& folder)> listDirectory;  ///< throws `std::system_error`
  std::function<std::int64_t(const fs::path& file)> sizeOfFile;                  ///< bytes; 0 when it can't be told
  std::function<void(const fs::path& file)> removeFile;                          ///< throws `std::system_error`
  std::function<std::optional<std::int64_t>(const fs::path& file)> lastWriteMs;  ///< absent for all but a regular file
  static FileOps real();
};

}  // namespace halvo::VideoRetentionSweep
