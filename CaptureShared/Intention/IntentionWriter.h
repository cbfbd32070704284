#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"

/// Declaring what one means to do. The truth is a row in the event log; the task file and the SQLite copy follow it.
namespace halvo::IntentionWriter {

inline constexpr const char* declaredType = "task_declared";
inline constexpr const char* clearedType = "task_cleared";

struct Record {
  std::string type = {};
  JSONObject detail = {};
  std::int64_t tsMs = 0;
  bool operator==(const Record&) const = default;
};

struct Declaration {
  std::string task = {};
  std::optional<std::string> until = {};  ///< a clock time or other free form, as the user gave it
  std::optional<std::string> why = {};
  std::int64_t asOfMs = 0;
};
Record declare(const Declaration& declaration);
/// A break is an ordinary declaration.
Record declareBreak(const std::optional<std::string>& until, std::int64_t asOfMs);
Record clear(std::int64_t asOfMs);
std::int64_t msSince1970(std::chrono::system_clock::time_point date);

struct Sinks {
  std::function<void(const Record&)> appendEvent;          ///< may throw
  std::function<void(const std::string&)> writeTaskFile;  ///< a copy: its failure is told on standard error and undoes nothing
  std::function<void(const Record&)> logSQLite;            ///< likewise
};
/// The one way to apply a record: the event first (its failure is thrown, and nothing else happens), then the two copies.
void perform(const Record& record, const Sinks& sinks, const Calendar& calendar = Calendar::local());

/// The sinks of a program of ours: the event log, the task file and `signals.sqlite` of the present data root. A copy that fails says so
/// on standard error.
Sinks standardSinks(const std::string& processName);

}  // namespace halvo::IntentionWriter
