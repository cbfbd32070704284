#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"

#include <algorithm>
#include <system_error>

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::TurnUsageRecordLog {

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "turn-usage.jsonl"; }

void append(const TurnUsageRecord& record, const std::filesystem::path& url) { append(record.encoded(), url); }

void append(const JSONValue& encoded, const std::filesystem::path& url) {
  if (!encoded.objectValue()) throw TurnUsageRecordLogError(TurnUsageRecordLogError::Kind::notAnObject);
  JSONLAppend::appendValue(encoded, url);
}

std::vector<TurnUsageRecord> read(const std::filesystem::path& url, std::size_t limit) {
  std::string text;
  try {
    text = readFile(url);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
  std::vector<TurnUsageRecord> rows;
  const auto lines = Text::split(text, '\n');
  // Newest first until there are enough, so that a long log costs what is asked of it.
  for (auto line = lines.rbegin(); line != lines.rend() && rows.size() < limit; ++line)
    if (auto row = TurnUsageRecord::decode(*line)) rows.push_back(std::move(*row));
  std::reverse(rows.begin(), rows.end());
  return rows;
}

}  // namespace halvo::TurnUsageRecordLog
