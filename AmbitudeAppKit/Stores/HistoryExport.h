#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

/// A stretch of history as files of the person's own: what they chose, in the forms that the logs have.
namespace halvo::HistoryExport {

struct Choice {
  std::int64_t fromMs = 0, toMs = 0;  ///< both inclusive
  bool withEvents = true;             ///< declarations, conversation, quiet
  bool withVerdicts = true;           ///< judgments and the gate's decisions
  bool withSamples = false;           ///< which app when, as CSV
};
struct Written {
  std::string file;
  std::int64_t rows = 0;
};

/// Writes into a new folder of this name (0700, files 0600): it must not be there yet. Rows are copied as they are, byte for byte. What was written before
/// a failure or a stop is taken away again. Throws `std::system_error`, `SignalsReaderError`, `Cancelled`.
std::vector<Written> write(const Choice& choice, const std::filesystem::path& root, const std::filesystem::path& folder, const std::stop_token& stop = {});

}  // namespace halvo::HistoryExport
