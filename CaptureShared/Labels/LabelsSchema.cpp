#include "CaptureShared/Labels/LabelsSchema.h"

#include <algorithm>
#include <string>

namespace halvo::LabelsSchema {

namespace {

std::string createTable() {
  std::string values;
  for (const auto value : labelValues) values += (values.empty() ? "'" : ",'") + std::string(value) + "'";
  return "CREATE TABLE IF NOT EXISTS labels (\n"
         "  id INTEGER PRIMARY KEY AUTOINCREMENT,\n"
         "  t0_ms INTEGER NOT NULL,\n"
         "  t1_ms INTEGER NOT NULL,\n"
         "  declared_task TEXT,\n"
         "  label TEXT NOT NULL CHECK (label IN (" + values + ")),\n"
         "  notes TEXT,\n"
         "  source_hour TEXT NOT NULL,\n"
         "  created_at TEXT NOT NULL\n"
         ");";
}

}  // namespace

void create(SQLiteDB& db) {
  db.run(createTable());
  ensureColumns(db);
}

void ensureColumns(SQLiteDB& db) {
  auto has = [&db](std::string_view name) {
    const auto columns = db.columnNames("labels");
    return std::ranges::find(columns, name) != columns.end();
  };
  for (const auto& [name, type] : addedColumns) {
    if (has(name)) continue;
    try {
      db.run("ALTER TABLE labels ADD COLUMN " + std::string(name) + " " + std::string(type));
    } catch (const SQLiteError&) {
      // Another writer may have been first.
      if (!has(name)) throw;
    }
  }
}

}  // namespace halvo::LabelsSchema
