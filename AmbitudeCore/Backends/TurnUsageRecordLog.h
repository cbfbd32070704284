#pragma once

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/TurnUsageRecord.h"

namespace halvo {

class TurnUsageRecordLogError : public std::runtime_error {
 public:
  enum class Kind { notAnObject };
  explicit TurnUsageRecordLogError(Kind kind) : std::runtime_error("a usage row is not a JSON object"), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace halvo

/// turn-usage.jsonl: appended by the coach driver, one line a call.
namespace halvo::TurnUsageRecordLog {

/// "turn-usage.jsonl" directly under the data root.
std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);

/// Appends one line, keys sorted. Throws `JSONLAppendError` when it cannot be written.
void append(const TurnUsageRecord& record, const std::filesystem::path& url);
/// The same for a row that is encoded already. Throws `TurnUsageRecordLogError` unless it is an object.
void append(const JSONValue& encoded, const std::filesystem::path& url);

/// The newest `limit` rows in file order. Lines that are no rows are skipped; a missing file has none. Throws `std::system_error` for a
/// file that is there and cannot be read.
std::vector<TurnUsageRecord> read(const std::filesystem::path& url, std::size_t limit);

}  // namespace halvo::TurnUsageRecordLog
