#include "CaptureShared/Intention/IntentionWriter.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Intention/EventLog.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "CaptureShared/Signals/Schema.h"

namespace halvo::IntentionWriter {

Record declare(const Declaration& declaration) {
  return {.type = declaredType,
          .detail = {{"task", declaration.task}, {"until", JSONValue::orNull(declaration.until)}, {"why", JSONValue::orNull(declaration.why)}},
          .tsMs = declaration.asOfMs};
}

Record declareBreak(const std::optional<std::string>& until, std::int64_t asOfMs) {
  return declare({.task = "Break", .until = until, .why = "Intentional break (don't check during this window)", .asOfMs = asOfMs});
}

Record clear(std::int64_t asOfMs) { return {.type = clearedType, .detail = {}, .tsMs = asOfMs}; }

std::int64_t msSince1970(std::chrono::system_clock::time_point date) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

void perform(const Record& record, const Sinks& sinks, const Calendar& calendar) {
  sinks.appendEvent(record);
  // The declaration stands from here on: a copy that fails neither undoes it nor keeps the other copy from being made.
  auto copy = [](const char* name, const std::function<void()>& make) {
    try {
      make();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "warning: the %s was not written: %s\n", name, error.what());
    }
  };
  if (const auto body = EventLog::taskFileBody(record.type, record.detail, record.tsMs, calendar))
    copy("task file", [&] { sinks.writeTaskFile(*body); });
  copy("declaration's copy in signals.sqlite", [&] { sinks.logSQLite(record); });
}

namespace {

/// The detail without what has no JSON form, so that a declaration is not lost over its "why". Its own words are never dropped: without them
/// there is nothing to declare, and the append says so.
JSONObject encodable(const JSONObject& detail) {
  JSONObject kept;
  for (const auto& [key, value] : detail) {
    try {
      value.dump();
      kept.set(key, value);
    } catch (const JSONEncodingError&) {
      if (key == "task" || key == "notes") {
        kept.set(key, value);
        continue;
      }
      std::fprintf(stderr, "warning: dropping unsupported intention detail\n");
    }
  }
  return kept;
}

}  // namespace

Sinks standardSinks(const std::string& processName) {
  return {.appendEvent =
              [processName](const Record& record) {
                EventLogWriter::append(EventLogEvent{.tsMs = record.tsMs,
                                                     .kind = "event",
                                                     .type = record.type,
                                                     .detail = encodable(record.detail),
                                                     .source = "set_task"},
                                       EventLog::path(), processName);
              },
          .writeTaskFile =
              [](const std::string& body) {
                const auto file = CurrentTask::path();
                makePrivateFolder(file.parent_path());
                writeFileAtomically(file, body);
              },
          .logSQLite =
              [](const Record& record) {
                const auto file = DataPaths::signalsDB();
                // The sampler makes the database; before it ever ran there is nothing to copy into.
                std::error_code error;
                if (!std::filesystem::exists(file, error)) return;
                try {
                  SQLiteDB db(file, SQLiteDB::Role::writer);
                  Schema::createAll(db);  // the sampler may have just made the file
                  db.insert("INSERT INTO events (ts_ms, type, detail) VALUES (?, ?, ?)", {record.tsMs, record.type, JSONValue(record.detail).dump()});
                } catch (const std::exception& failure) {
                  std::fprintf(stderr, "warning: the declaration was not copied to %s: %s\n", file.c_str(), failure.what());
                }
              }};
}

}  // namespace halvo::IntentionWriter
