#include "CaptureShared/Labels/AnsweredMoments.h"

#include "CaptureShared/Labels/LabelsWriter.h"
#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo::AnsweredMoments {

namespace {
SQLiteDB opened(const std::filesystem::path& path) {
  try {
    return SQLiteDB(path, SQLiteDB::Role::reader);
  } catch (const SQLiteError&) {
    throw ReadError::openFailed("sqlite3_open_v2 failed");
  }
}
}  // namespace

std::set<std::int64_t> rampLabeledTickMs(const std::filesystem::path& labelsPath) {
  const auto db = opened(labelsPath);
  std::set<std::int64_t> moments;
  try {
    auto rows = db.prepare("SELECT t0_ms FROM labels WHERE source = ?");
    rows.bind({std::string(LabelsWriter::rampSourceValue)});
    while (rows.step()) moments.insert(rows.integer(0));
  } catch (const SQLiteError& error) {
    throw ReadError::openFailed(error.what());  // a file that is no database opens, and fails here
  }
  return moments;
}

}  // namespace halvo::AnsweredMoments
