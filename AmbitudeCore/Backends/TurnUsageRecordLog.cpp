#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"

#include <algorithm>
#include <cstdint>
#include <system_error>

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::TurnUsageRecordLog {
namespace {

constexpr std::uint64_t blockBytes = 256 * 1024;  // some thousand rows

}  // namespace

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "turn-usage.jsonl"; }

void append(const TurnUsageRecord& record, const std::filesystem::path& url) { append(record.encoded(), url); }

void append(const JSONValue& encoded, const std::filesystem::path& url) {
  if (!encoded.objectValue()) throw TurnUsageRecordLogError(TurnUsageRecordLogError::Kind::notAnObject);
  JSONLAppend::appendValue(encoded, url);
}

std::vector<TurnUsageRecord> read(const std::filesystem::path& url, std::size_t limit) {
  FileHandle file;
  std::uint64_t end = 0;
  try {
    file = FileHandle::openForRead(url);
    end = static_cast<std::uint64_t>(FileIdentity::of(url).size);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
  // From the end, block by block, until there are enough: a log of years costs what is asked of it.
  std::vector<TurnUsageRecord> rows;
  std::string behind;  // the rest of the line that a block begins within
  while (end > 0 && rows.size() < limit) {
    const auto from = end - std::min(end, blockBytes);
    const auto block = file.readAt(from, end - from) + behind;
    auto lines = Text::split(block, '\n');
    behind = from > 0 && lines.front().size() <= blockBytes ? lines.front() : "";  // longer than a block is no row
    if (from > 0) lines.front() = {};
    for (auto line = lines.rbegin(); line != lines.rend() && rows.size() < limit; ++line)
      if (auto row = TurnUsageRecord::decode(*line)) rows.push_back(std::move(*row));
    end = from;
  }
  std::reverse(rows.begin(), rows.end());
  return rows;
}

}  // namespace halvo::TurnUsageRecordLog
