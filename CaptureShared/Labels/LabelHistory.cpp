#include "CaptureShared/Labels/LabelHistory.h"

#include <set>

#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo::LabelHistory {

std::vector<Row> read(const std::filesystem::path& labelsPath) {
  const SQLiteDB db(labelsPath, SQLiteDB::Role::reader);
  auto found = db.prepare("SELECT id, t0_ms, label, notes, created_at, source, answered_blind FROM labels ORDER BY id");
  std::vector<Row> rows;
  while (found.step()) {
    const auto blind = found.optionalInteger(6);
    rows.push_back({.id = found.integer(0),
                    .t0Ms = found.integer(1),
                    .label = found.optionalText(2).value_or(""),
                    .notes = found.optionalText(3),
                    .createdAt = found.optionalText(4).value_or(""),
                    .source = found.optionalText(5),
                    .answeredBlind = blind ? std::optional(*blind != 0) : std::nullopt});
  }
  std::set<std::int64_t> told;
  for (auto row = rows.rbegin(); row != rows.rend(); ++row) row->superseded = !told.insert(row->t0Ms).second;
  return rows;
}

}  // namespace halvo::LabelHistory
