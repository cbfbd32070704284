#include "CaptureShared/Labels/LabelsWriter.h"

#include "CaptureShared/Foundation/WallHour.h"
#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo::LabelsWriter {

namespace {

using Kind = LabelsWriterError::Kind;

constexpr std::string_view insertText =
    "INSERT INTO labels\n"
    "  (t0_ms, t1_ms, declared_task, label, notes, source_hour, created_at, source,\n"
    "   answered_blind, user_note)\n"
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

template <class F>
auto telling(Kind kind, F&& body) {
  try {
    return body();
  } catch (const SQLiteError& error) {
    throw LabelsWriterError(error.isBusy() ? Kind::stepFailed : kind, error.what());
  }
}

}  // namespace

void insert(const Label& label, const Calendar& calendar, const std::filesystem::path& path) {
  // Every writer folds its row into the file as it closes: a copy of the file alone then has all rows.
  auto db = telling(Kind::openFailed, [&] { return SQLiteDB(path, SQLiteDB::Role::owner); });
  auto statement = telling(Kind::prepareFailed, [&] {
    db.run("PRAGMA synchronous=FULL;");  // a kept answer outlives a power cut
    LabelsSchema::create(db);
    return db.prepare(insertText);
  });
  telling(Kind::stepFailed, [&] {
    statement.bind({label.tickTsMs, label.tickTsMs, sqliteValue(label.declaredTask), label.label, sqliteValue(label.notes),
                    "inapp:" + WallHour::prefix(label.tickTsMs, calendar), ISO8601::utcSeconds(label.asOfMs), label.source,
                    sqliteValue(label.answeredBlind), sqliteValue(label.userNote)});
    statement.step();
  });
}

void insert(const VoteRow& vote, const Calendar& calendar, const std::filesystem::path& path) {
  insert({.label = vote.vote == Vote::matches ? "on_task" : "off_task",
          .declaredTask = vote.declaredTask,
          .tickTsMs = vote.tickTsMs,
          .notes = vote.notes,
          .asOfMs = vote.asOfMs},
         calendar, path);
}

}  // namespace halvo::LabelsWriter
