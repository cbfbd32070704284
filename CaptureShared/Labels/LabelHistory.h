#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// All that was ever said of moments, as `labels.sqlite` holds it.
namespace halvo::LabelHistory {

struct Row {
  std::int64_t id = 0;
  std::int64_t t0Ms = 0;
  std::string label = {};
  std::optional<std::string> notes = {};
  std::string createdAt = {};  ///< UTC ISO time
  std::optional<std::string> source = {};
  std::optional<bool> answeredBlind = {};
  bool superseded = false;  ///< a newer row tells of the same moment
};
/// In the order they were written. Throws `SQLiteError`, also when there is no database or its table lacks the later columns.
std::vector<Row> read(const std::filesystem::path& labelsPath);

}  // namespace halvo::LabelHistory
